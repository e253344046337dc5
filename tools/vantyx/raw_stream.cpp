#include "raw_stream.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

namespace VantyxTool {

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void ShowProgress(uint64_t frames, double seconds) {
  std::fprintf(stderr, "\r%llu frames  %.1f fps  %.1f s ", static_cast<unsigned long long>(frames),
               seconds > 0.0 ? double(frames) / seconds : 0.0, seconds);
  std::fflush(stderr);
}

}  // namespace

bool RunRawStream(EffectRunner* runner, const FrameSettings& settings, const uint8_t* mask,
                  int32_t width, int32_t height, FILE* in, FILE* out, bool progress,
                  RawStreamResult* result, std::string* error) {
  const size_t in_bytes = size_t(width) * size_t(height) * 4;
  const size_t out_bytes = size_t(settings.rect.Width()) * settings.rect.Height() * 4;
  std::vector<uint8_t> src(in_bytes), dst(out_bytes);
  const Clock::time_point start = Clock::now();
  double shown = 0.0;
  *result = RawStreamResult();
  bool ok = true;
  for (;;) {
    // fread keeps reading until the frame is complete or the stream ends.
    const size_t got = std::fread(src.data(), 1, in_bytes, in);
    if (got < in_bytes) {
      if (std::ferror(in)) {
        *error = "cannot read frame " + std::to_string(result->frames + 1) + ": " +
                 std::strerror(errno);
        ok = false;
      } else if (got > 0) {
        *error = "truncated frame " + std::to_string(result->frames + 1) + ": got " +
                 std::to_string(got) + " of " + std::to_string(in_bytes) + " bytes (" +
                 std::to_string(width) + "x" + std::to_string(height) + "x4); the frames before it (" +
                 std::to_string(result->frames) + ") were written";
        ok = false;
      }
      break;
    }
    if (!runner->Render(settings, src.data(), mask, dst.data(), error)) {
      *error = "frame " + std::to_string(result->frames + 1) + ": " + *error;
      ok = false;
      break;
    }
    if (std::fwrite(dst.data(), 1, out_bytes, out) != out_bytes || std::fflush(out) != 0) {
      *error = errno == EPIPE
                   ? "the output was closed after " + std::to_string(result->frames) + " frame" +
                         (result->frames == 1 ? "" : "s")
                   : "cannot write frame " + std::to_string(result->frames + 1) + ": " +
                         std::strerror(errno);
      ok = false;
      break;
    }
    ++result->frames;
    if (progress) {
      const double now = SecondsSince(start);
      if (now - shown >= 0.25) {
        ShowProgress(result->frames, now);
        shown = now;
      }
    }
  }
  result->seconds = SecondsSince(start);
  if (progress && shown > 0.0) std::fputs("\r\033[K", stderr);  // clear the live line
  return ok;
}

}  // namespace VantyxTool
