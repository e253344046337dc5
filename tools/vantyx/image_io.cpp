#include "image_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

#include "image_codecs.h"

namespace VantyxTool {

namespace {

// Larger pictures are refused rather than risking an allocation the machine cannot make.
constexpr uint32_t kMaxSide = 65535;
constexpr uint64_t kMaxPixels = uint64_t(1) << 28;

struct FileCloser {
  void operator()(FILE* file) const {
    if (file) std::fclose(file);
  }
};
using File = std::unique_ptr<FILE, FileCloser>;

bool EndsWith(const std::string& text, const char* suffix) {
  const size_t n = std::strlen(suffix);
  if (text.size() < n) return false;
  for (size_t i = 0; i < n; ++i) {
    char c = text[text.size() - n + i];
    if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    if (c != suffix[i]) return false;
  }
  return true;
}

// Puts the finished temporary file in place of `path`, replacing what was there.
bool ReplaceWith(const std::string& temp, const std::string& path, std::string* detail) {
#if defined(_WIN32)
  // The C library's rename refuses to replace an existing file on Windows.
  if (MoveFileExA(temp.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING)) return true;
  *detail = "cannot replace it (Windows error " + std::to_string(GetLastError()) + ")";
  return false;
#else
  if (std::rename(temp.c_str(), path.c_str()) == 0) return true;
  *detail = std::strerror(errno);
  return false;
#endif
}

}  // namespace

std::string Quoted(const std::string& path) { return "'" + path + "'"; }

bool CheckSize(uint32_t width, uint32_t height, const std::string& path, std::string* error) {
  if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide ||
      uint64_t(width) * height > kMaxPixels) {
    *error = Quoted(path) + ": picture size " + std::to_string(width) + "x" +
             std::to_string(height) + " is not supported";
    return false;
  }
  return true;
}

ImageFormat FormatFromPath(const std::string& path) {
  if (EndsWith(path, ".png")) return ImageFormat::kPng;
  if (EndsWith(path, ".jpg") || EndsWith(path, ".jpeg")) return ImageFormat::kJpeg;
  return ImageFormat::kUnknown;
}

bool ReadImage(const std::string& path, Image* image, std::string* error) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    *error = "cannot open " + Quoted(path) + ": " + std::strerror(errno);
    return false;
  }
  struct stat info;
  if (fstat(fileno(file.get()), &info) == 0 && S_ISDIR(info.st_mode)) {
    *error = "cannot read " + Quoted(path) + ": it is a directory";
    return false;
  }
  unsigned char magic[8] = {};
  const size_t got = std::fread(magic, 1, sizeof(magic), file.get());
  if (std::ferror(file.get())) {
    *error = "cannot read " + Quoted(path) + ": " + std::strerror(errno);
    return false;
  }
  std::rewind(file.get());
  static const unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  Image loaded;
  bool ok = false;
  if (got == 8 && std::memcmp(magic, kPngSignature, 8) == 0) {
    ok = ReadPng(file.get(), path, &loaded, error);
  } else if (got >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF) {
    ok = ReadJpeg(file.get(), path, &loaded, error);
  } else {
    *error = Quoted(path) + " is neither a PNG nor a JPEG file";
  }
  if (ok) *image = std::move(loaded);
  return ok;
}

bool WriteImage(const std::string& path, const Image& image, int32_t jpeg_quality,
                std::string* error) {
  const ImageFormat format = FormatFromPath(path);
  if (format == ImageFormat::kUnknown) {
    *error = "cannot tell the format of " + Quoted(path) + ": name it .png, .jpg or .jpeg";
    return false;
  }
  std::string temp = path + ".tmp-XXXXXX";
  const int fd = mkstemp(&temp[0]);
  if (fd < 0) {
    *error = "cannot create a file beside " + Quoted(path) + ": " + std::strerror(errno);
    return false;
  }
#if !defined(_WIN32)
  // mkstemp makes the file private; give it the permissions a plain create would.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
#endif
  FILE* file = fdopen(fd, "wb");
  if (!file) {
    *error = "cannot write " + Quoted(temp) + ": " + std::strerror(errno);
    close(fd);
    unlink(temp.c_str());
    return false;
  }
  std::string detail;
  bool ok = format == ImageFormat::kPng ? WritePng(file, image, &detail)
                                        : WriteJpeg(file, image, jpeg_quality, &detail);
  if (ok && std::fflush(file) != 0) {
    detail = std::strerror(errno);
    ok = false;
  }
  if (std::fclose(file) != 0 && ok) {
    detail = std::strerror(errno);
    ok = false;
  }
  if (ok) ok = ReplaceWith(temp, path, &detail);
  if (!ok) {
    unlink(temp.c_str());
    *error = "cannot write " + Quoted(path) + ": " + detail;
  }
  return ok;
}

std::vector<uint8_t> GreyOf(const Image& image) {
  std::vector<uint8_t> grey(size_t(image.width) * image.height);
  for (size_t i = 0; i < grey.size(); ++i) {
    const uint8_t* p = image.bgra.data() + i * 4;
    // BT.601 weights summing to 256: a grey pixel (b = g = r) keeps its exact value.
    grey[i] = uint8_t((29u * p[0] + 150u * p[1] + 77u * p[2] + 128u) >> 8);
  }
  return grey;
}

}  // namespace VantyxTool
