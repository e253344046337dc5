#include "test_support.h"

#include <algorithm>
#include <cstring>

#include "core/debug_log.h"
#include "core/platform.h"

namespace Vantyx {
namespace test {

bool HasSse41() { return platform::MeasureSimdLevel() >= SIMD_SSE41; }

Image::Image(int32_t w, int32_t h, uint32_t fmt, int32_t extra_stride)
    : width(w), height(h), stride(w * int32_t(BytesPerPixel(fmt)) + extra_stride), format(fmt) {
  bytes.assign(size_t(stride) * size_t(h), 0);
}

ImageView Image::View(int32_t origin_x, int32_t origin_y) {
  return ImageView{bytes.empty() ? nullptr : bytes.data(), width, height, stride, format,
                   origin_x, origin_y};
}

ImageDesc Image::Desc() {
  const uint32_t channels = format == PIXEL_BGRA32 ? 4 : (format == PIXEL_FLOAT96 ? 3 : 1);
  return ImageDesc{bytes.empty() ? nullptr : bytes.data(), uint32_t(width), uint32_t(height),
                   uint32_t(stride), channels, format, 0};
}

void FillRandomBytes(uint8_t* data, size_t n, uint32_t seed) {
  uint64_t s = uint64_t(seed) * 0x9E3779B97F4A7C15ull + 0x2545F4914F6CDD1Dull;
  for (size_t i = 0; i < n; i += 8) {  // xorshift64*, eight bytes a step
    s ^= s >> 12;
    s ^= s << 25;
    s ^= s >> 27;
    const uint64_t v = s * 0x2545F4914F6CDD1Dull;
    std::memcpy(data + i, &v, std::min<size_t>(8, n - i));
  }
}

void Image::FillRandom(uint32_t seed) { FillRandomBytes(bytes.data(), bytes.size(), seed); }
void Image::Fill(uint8_t value) { std::fill(bytes.begin(), bytes.end(), value); }

LogCapture::LogCapture() { SetLogSink(&LogCapture::Sink, this); }
LogCapture::~LogCapture() { SetLogSink(nullptr, nullptr); }

void LogCapture::Sink(const char* line, void* user) {
  auto* self = static_cast<LogCapture*>(user);
  std::lock_guard<std::mutex> lock(self->mutex_);
  self->lines_.emplace_back(line);
}

std::vector<std::string> LogCapture::Lines() {
  std::lock_guard<std::mutex> lock(mutex_);
  return lines_;
}

bool LogCapture::Contains(const std::string& text) {
  for (const auto& l : Lines())
    if (l.find(text) != std::string::npos) return true;
  return false;
}

}  // namespace test
}  // namespace Vantyx
