// The picture codecs behind image_io.cpp, one implementation per build: libpng and libjpeg-turbo
// on Linux (image_codecs_png_jpeg.cpp), the stb headers in the Windows build, which has no
// mingw builds of those libraries (image_codecs_stb.cpp).
#ifndef VANTYX_TOOL_IMAGE_CODECS_H
#define VANTYX_TOOL_IMAGE_CODECS_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "image_io.h"

namespace VantyxTool {

// Read from the start of `file`; false with a one-line message naming `path`.
bool ReadPng(FILE* file, const std::string& path, Image* image, std::string* error);
bool ReadJpeg(FILE* file, const std::string& path, Image* image, std::string* error);
// False with the encoder's reason.
bool WritePng(FILE* file, const Image& image, std::string* error);
bool WriteJpeg(FILE* file, const Image& image, int32_t quality, std::string* error);

// Shared by the codecs (image_io.cpp): 'path', and the picture sizes the tool accepts.
std::string Quoted(const std::string& path);
bool CheckSize(uint32_t width, uint32_t height, const std::string& path, std::string* error);

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_IMAGE_CODECS_H
