#include "commands.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#endif

#include "effect_table.h"
#include "image_io.h"
#include "options.h"
#include "raw_stream.h"
#include "runner.h"

#ifndef VANTYX_ASSETS_DIR
#define VANTYX_ASSETS_DIR ""
#endif

namespace VantyxTool {

namespace {

// Raw frames pass through standard input and output untouched: on Windows they start in text
// mode, which would turn every 0x0A byte into two.
void UseBinary(FILE* stream) {
#if defined(_WIN32)
  _setmode(_fileno(stream), _O_BINARY);
#else
  (void)stream;
#endif
}

int MakeDirectory(const std::string& path) {
#if defined(_WIN32)
  return mkdir(path.c_str());
#else
  return mkdir(path.c_str(), 0777);
#endif
}

int Fail(const std::string& message, int status = kExitFailure) {
  std::fprintf(stderr, "vantyx: %s\n", message.c_str());
  return status;
}

std::string SizeText(int32_t width, int32_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

// The mask as one byte per pixel at the frame size, or empty when none was asked for.
bool LoadMask(const ApplyRequest& request, int32_t width, int32_t height,
              std::vector<uint8_t>* mask, std::string* error) {
  mask->clear();
  if (request.mask_path.empty()) return true;
  Image picture;
  if (!ReadImage(request.mask_path, &picture, error)) {
    *error = "mask: " + *error;
    return false;
  }
  if (picture.width != width || picture.height != height) {
    *error = "mask '" + request.mask_path + "' is " + SizeText(picture.width, picture.height) +
             " but the frames are " + SizeText(width, height);
    return false;
  }
  *mask = GreyOf(picture);
  return true;
}

int ApplyToPicture(const ApplyRequest& request) {
  std::string error;
  // Known before any work is done, so a misnamed output costs nothing.
  if (FormatFromPath(request.output) == ImageFormat::kUnknown) {
    return Fail("cannot tell the format of '" + request.output + "': name it .png, .jpg or .jpeg",
                kExitUsage);
  }
  Image input;
  if (!ReadImage(request.input, &input, &error)) return Fail(error);
  FrameSettings settings;
  if (!SettingsForFrame(request, input.width, input.height, &settings, &error)) {
    return Fail(error, kExitUsage);
  }
  std::vector<uint8_t> mask;
  if (!LoadMask(request, input.width, input.height, &mask, &error)) return Fail(error);

  EffectRunner runner;
  if (!runner.Open(*request.effect, &error) ||
      !runner.SetImageSize(input.width, input.height, &error)) {
    return Fail(error);
  }
  Image output;
  output.width = int32_t(settings.rect.Width());
  output.height = int32_t(settings.rect.Height());
  output.has_alpha = input.has_alpha;
  output.bgra.assign(size_t(output.width) * output.height * 4, 0);
  if (!runner.Render(settings, input.bgra.data(), mask.empty() ? nullptr : mask.data(),
                     output.bgra.data(), &error)) {
    return Fail(error);
  }
  if (!WriteImage(request.output, output, request.jpeg_quality, &error)) return Fail(error);
  return kExitOk;
}

struct FileCloser {
  void operator()(FILE* file) const {
    if (file && file != stdin && file != stdout) std::fclose(file);
  }
};

int ApplyToRawStream(const ApplyRequest& request) {
  std::string error;
  const int32_t width = request.raw_width, height = request.raw_height;
  FrameSettings settings;
  if (!SettingsForFrame(request, width, height, &settings, &error)) return Fail(error, kExitUsage);
  std::vector<uint8_t> mask;
  if (!LoadMask(request, width, height, &mask, &error)) return Fail(error);

  const bool from_stdin = request.input == "-";
  if (from_stdin && isatty(fileno(stdin))) {
    return Fail("standard input is a terminal: pipe raw BGRA frames into it", kExitUsage);
  }
  if (from_stdin) UseBinary(stdin);
  std::unique_ptr<FILE, FileCloser> in(from_stdin ? stdin : std::fopen(request.input.c_str(), "rb"));
  if (!in) return Fail("cannot open '" + request.input + "': " + std::strerror(errno));

  EffectRunner runner;
  if (!runner.Open(*request.effect, &error) || !runner.SetImageSize(width, height, &error)) {
    return Fail(error);
  }
  const bool to_stdout = request.output == "-";
  if (to_stdout && isatty(fileno(stdout))) {
    return Fail("standard output is a terminal: pipe it into a file or a program", kExitUsage);
  }
  if (to_stdout) UseBinary(stdout);
  std::unique_ptr<FILE, FileCloser> out(to_stdout ? stdout
                                                  : std::fopen(request.output.c_str(), "wb"));
  if (!out) return Fail("cannot create '" + request.output + "': " + std::strerror(errno));
#if defined(SIGPIPE)
  // A reader that goes away should end the run with a message, not a silent SIGPIPE.
  std::signal(SIGPIPE, SIG_IGN);
#endif

  RawStreamResult result;
  const bool ok = RunRawStream(&runner, settings, mask.empty() ? nullptr : mask.data(), width,
                               height, in.get(), out.get(), isatty(fileno(stderr)) != 0, &result,
                               &error);
  const double fps = result.seconds > 0.0 ? double(result.frames) / result.seconds : 0.0;
  std::fprintf(stderr, "vantyx: %llu frame%s of %s in %.2f s (%.1f fps)\n",
               static_cast<unsigned long long>(result.frames), result.frames == 1 ? "" : "s",
               SizeText(int32_t(settings.rect.Width()), int32_t(settings.rect.Height())).c_str(),
               result.seconds, fps);
  if (!to_stdout) {
    FILE* file = out.release();
    if (std::fclose(file) != 0 && ok) {
      return Fail("cannot write '" + request.output + "': " + std::strerror(errno));
    }
  }
  return ok ? kExitOk : Fail(error);
}

// ---- demo -------------------------------------------------------------------------------------

bool IsDirectory(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::vector<std::string> PicturesIn(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  if (!d) return names;
  while (dirent* entry = readdir(d)) {
    const std::string name = entry->d_name;
    if (name[0] != '.' && FormatFromPath(name) != ImageFormat::kUnknown) names.push_back(name);
  }
  closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

std::string ExecutableDir(const char* self) {
  char path[4096];
#if defined(_WIN32)
  const DWORD n = GetModuleFileNameA(nullptr, path, sizeof(path));
  std::string exe = n > 0 && n < sizeof(path) ? std::string(path, n) : std::string(self ? self : "");
#else
  const ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
  std::string exe = n > 0 ? std::string(path, size_t(n)) : std::string(self ? self : "");
#endif
  const size_t slash = exe.find_last_of("/\\");
  return slash == std::string::npos ? "." : exe.substr(0, slash);
}

// The bundled photos: beside an installed tool, then in the source tree it was built from.
std::string FindAssets(const char* self) {
  const std::string dir = ExecutableDir(self);
  const std::string candidates[] = {dir + "/../share/vantyx/assets", dir + "/assets",
                                    VANTYX_ASSETS_DIR};
  for (const std::string& candidate : candidates) {
    if (!candidate.empty() && IsDirectory(candidate) && !PicturesIn(candidate).empty()) {
      return candidate;
    }
  }
  return std::string();
}

bool MakeDirectories(const std::string& path, std::string* error) {
  for (size_t at = 1; at <= path.size(); ++at) {
    if (at != path.size() && path[at] != '/' && path[at] != '\\') continue;
    const std::string part = path.substr(0, at);
    if (MakeDirectory(part) != 0 && errno != EEXIST && !IsDirectory(part)) {
      *error = "cannot create '" + part + "': " + std::strerror(errno);
      return false;
    }
  }
  if (!IsDirectory(path)) {
    *error = "'" + path + "' is not a directory";
    return false;
  }
  return true;
}

std::string Stem(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

// One row per photo: the photo on the left, the effect's result on the right.
Image BeforeAfterSheet(const std::vector<Image>& before, const std::vector<Image>& after) {
  constexpr int32_t kGap = 8;
  Image sheet;
  int32_t width = 0, height = kGap;
  for (size_t i = 0; i < before.size(); ++i) {
    width = std::max(width, kGap + before[i].width + kGap + after[i].width + kGap);
    height += std::max(before[i].height, after[i].height) + kGap;
  }
  sheet.width = width;
  sheet.height = height;
  sheet.bgra.assign(size_t(width) * height * 4, 0);
  for (size_t p = 0; p < sheet.bgra.size(); p += 4) {
    sheet.bgra[p] = sheet.bgra[p + 1] = sheet.bgra[p + 2] = 40;
    sheet.bgra[p + 3] = 255;
  }
  auto paste = [&sheet](const Image& image, int32_t x0, int32_t y0) {
    for (int32_t y = 0; y < image.height; ++y) {
      uint8_t* row = sheet.bgra.data() + (size_t(y0 + y) * sheet.width + x0) * 4;
      const uint8_t* from = image.bgra.data() + size_t(y) * image.width * 4;
      for (int32_t x = 0; x < image.width; ++x) {
        row[x * 4 + 0] = from[x * 4 + 0];
        row[x * 4 + 1] = from[x * 4 + 1];
        row[x * 4 + 2] = from[x * 4 + 2];
      }
    }
  };
  int32_t y = kGap;
  for (size_t i = 0; i < before.size(); ++i) {
    paste(before[i], kGap, y);
    paste(after[i], kGap + before[i].width + kGap, y);
    y += std::max(before[i].height, after[i].height) + kGap;
  }
  return sheet;
}

}  // namespace

int RunApplyCommand(const std::vector<std::string>& args) {
  ApplyRequest request;
  std::string error;
  if (!ParseApply(args, &request, &error)) return Fail(error, kExitUsage);
  if (request.help) {
    std::fputs(ApplyHelp(request.effect).c_str(), stdout);
    return kExitOk;
  }
  return request.raw ? ApplyToRawStream(request) : ApplyToPicture(request);
}

int RunDemoCommand(const std::vector<std::string>& args, const char* self) {
  std::string out_dir = "vantyx-demo";
  std::string assets;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(DemoHelp().c_str(), stdout);
      return kExitOk;
    }
    std::string* target = arg == "--out" ? &out_dir : arg == "--assets" ? &assets : nullptr;
    if (!target) return Fail("demo: unknown argument '" + arg + "' (see 'vantyx demo --help')", kExitUsage);
    if (i + 1 >= args.size()) return Fail("option " + arg + " needs a directory", kExitUsage);
    *target = args[++i];
  }
  if (assets.empty()) assets = FindAssets(self);
  if (assets.empty()) {
    return Fail("demo: cannot find the sample photos; give their folder with --assets DIR");
  }
  const std::vector<std::string> names = PicturesIn(assets);
  if (names.empty()) return Fail("demo: no PNG or JPEG files in '" + assets + "'");
  std::string error;
  if (!MakeDirectories(out_dir, &error)) return Fail("demo: " + error);

  std::vector<Image> photos;
  for (const std::string& name : names) {
    Image photo;
    if (!ReadImage(assets + "/" + name, &photo, &error)) return Fail("demo: " + error);
    photos.push_back(std::move(photo));
  }
  std::printf("vantyx demo: %zu photos from %s, results in %s\n", photos.size(), assets.c_str(),
              out_dir.c_str());

  using Clock = std::chrono::steady_clock;
  constexpr int kTimedRuns = 5;
  int rendered = 0;
  for (const EffectSpec& effect : Effects()) {
    EffectRunner runner;
    if (!runner.Open(effect, &error)) {
      std::printf("  %-10s skipped: %s\n", effect.name, error.c_str());
      continue;
    }
    std::vector<Image> results;
    for (size_t i = 0; i < photos.size(); ++i) {
      const Image& photo = photos[i];
      ApplyRequest defaults;
      defaults.effect = &effect;
      defaults.given.assign(effect.option_count, false);
      defaults.values.assign(effect.option_count, 0.0);
      defaults.texts.assign(effect.option_count, std::string());
      FrameSettings settings;
      if (!SettingsForFrame(defaults, photo.width, photo.height, &settings, &error) ||
          !runner.SetImageSize(photo.width, photo.height, &error)) {
        return Fail("demo: " + error);
      }
      Image result;
      result.width = photo.width;
      result.height = photo.height;
      result.has_alpha = photo.has_alpha;
      result.bgra.assign(photo.bgra.size(), 0);
      // One untimed frame first: buffers and worker threads warm up on it.
      double seconds = 0.0;
      for (int run = 0; run <= kTimedRuns; ++run) {
        const Clock::time_point start = Clock::now();
        if (!runner.Render(settings, photo.bgra.data(), nullptr, result.bgra.data(), &error)) {
          return Fail("demo: " + names[i] + ": " + error);
        }
        if (run > 0) seconds += std::chrono::duration<double>(Clock::now() - start).count();
      }
      const std::string path = out_dir + "/" + effect.name + "-" + Stem(names[i]) + ".png";
      if (!WriteImage(path, result, kDefaultJpegQuality, &error)) return Fail("demo: " + error);
      std::printf("  %-10s %-16s %9s  %7.2f ms per frame  -> %s\n", effect.name, names[i].c_str(),
                  SizeText(photo.width, photo.height).c_str(), seconds * 1000.0 / kTimedRuns,
                  path.c_str());
      results.push_back(std::move(result));
    }
    const std::string sheet_path = out_dir + "/" + effect.name + "-sheet.png";
    if (!WriteImage(sheet_path, BeforeAfterSheet(photos, results), kDefaultJpegQuality, &error)) {
      return Fail("demo: " + error);
    }
    std::printf("  %-10s before/after sheet -> %s\n", effect.name, sheet_path.c_str());
    ++rendered;
  }
  return rendered > 0 ? kExitOk : Fail("demo: no effect could be rendered");
}

std::string MainHelp() {
  std::string out =
      "usage: vantyx COMMAND [arguments]\n\n"
      "Film-look effects for photos and video frames.\n\n"
      "Commands:\n"
      "  demo [--out DIR]                     render every effect over the bundled sample photos,\n"
      "                                       with a before/after sheet per effect (default DIR:\n"
      "                                       ./vantyx-demo)\n"
      "  apply EFFECT [options] IN OUT        apply one effect to a PNG or JPEG picture\n"
      "  apply EFFECT [options] --raw WxH - - apply it to raw BGRA video frames from standard\n"
      "                                       input to standard output (for ffmpeg pipes)\n"
      "  apply EFFECT --help                  the effect's options, ranges and defaults\n"
      "  --version                            the tool's version\n\n"
      "Effects:\n";
  for (const EffectSpec& effect : Effects()) {
    std::string name = "  " + std::string(effect.name);
    name.resize(14, ' ');
    out += name + effect.summary + "\n";
  }
  out += "\nExit status: 0 done, 1 failed (file, effect), 2 bad command line.\n";
  return out;
}

std::string DemoHelp() {
  return "usage: vantyx demo [--out DIR] [--assets DIR]\n\n"
         "Renders every effect with its default settings over the sample photos and writes\n"
         "EFFECT-PHOTO.png and a before/after EFFECT-sheet.png into DIR (default ./vantyx-demo),\n"
         "printing the time per frame. --assets names another folder of PNG or JPEG photos.\n";
}

}  // namespace VantyxTool
