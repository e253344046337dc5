// PNG and JPEG files to and from BGRA pixels (codecs: image_codecs.h).
#ifndef VANTYX_TOOL_IMAGE_IO_H
#define VANTYX_TOOL_IMAGE_IO_H

#include <cstdint>
#include <string>
#include <vector>

namespace VantyxTool {

// Tightly packed BGRA rows. has_alpha: the file had transparency (else alpha is 255 everywhere
// and an output PNG is written as RGB).
struct Image {
  int32_t width = 0;
  int32_t height = 0;
  bool has_alpha = false;
  std::vector<uint8_t> bgra;
};

enum class ImageFormat { kUnknown, kPng, kJpeg };

// By the file name's extension: .png, .jpg, .jpeg (any case).
ImageFormat FormatFromPath(const std::string& path);

// Reads a PNG or a JPEG (told apart by their first bytes). False with a one-line message for a
// missing, unreadable, corrupt or unsupported file.
bool ReadImage(const std::string& path, Image* image, std::string* error);

// Writes by the extension of `path` into a temporary file beside it, renamed over `path` only
// when everything was written: a failure leaves no partial file behind. A JPEG has no alpha.
bool WriteImage(const std::string& path, const Image& image, int32_t jpeg_quality,
                std::string* error);

// One byte per pixel, the picture's luma (a grey picture keeps its values exactly): for masks.
std::vector<uint8_t> GreyOf(const Image& image);

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_IMAGE_IO_H
