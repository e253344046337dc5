// PNG and JPEG through the stb headers: the Windows build's codecs (there are no mingw builds of
// libpng and libjpeg, and these compile into the program, so no DLL travels with it).
// Compared with the Linux codecs: PNG pixels are the same both ways; JPEG pixels differ by a
// few levels (another decoder and encoder), and PNG checksums are not verified.
#include <vector>

#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_FAILURE_USERMSG
#define STB_IMAGE_IMPLEMENTATION
#include <stb_image.h>
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb_image_write.h>

#include "image_codecs.h"

namespace VantyxTool {

namespace {

// Bytes as stored: no gamma or colour-profile conversion (stb applies none to 8-bit pictures).
bool ReadStb(FILE* file, const std::string& path, const char* kind, Image* image,
             std::string* error) {
  int width = 0, height = 0, channels = 0;
  const bool known = stbi_info_from_file(file, &width, &height, &channels) != 0;  // rewinds
  if (known && !CheckSize(uint32_t(width), uint32_t(height), path, error)) return false;
  stbi_uc* rgba = known ? stbi_load_from_file(file, &width, &height, &channels, 4) : nullptr;
  if (!rgba) {
    *error = Quoted(path) + ": corrupt " + kind + " file (" + stbi_failure_reason() + ")";
    return false;
  }
  image->width = width;
  image->height = height;
  image->has_alpha = channels == 2 || channels == 4;
  image->bgra.resize(size_t(width) * height * 4);
  for (size_t i = 0; i < image->bgra.size(); i += 4) {
    image->bgra[i + 0] = rgba[i + 2];
    image->bgra[i + 1] = rgba[i + 1];
    image->bgra[i + 2] = rgba[i + 0];
    image->bgra[i + 3] = rgba[i + 3];
  }
  stbi_image_free(rgba);
  return true;
}

// RGB or RGBA rows for the encoders.
std::vector<uint8_t> Interleaved(const Image& image, int channels) {
  std::vector<uint8_t> out(size_t(image.width) * image.height * size_t(channels));
  for (size_t p = 0, q = 0; q < out.size(); p += 4, q += size_t(channels)) {
    out[q + 0] = image.bgra[p + 2];
    out[q + 1] = image.bgra[p + 1];
    out[q + 2] = image.bgra[p + 0];
    if (channels == 4) out[q + 3] = image.bgra[p + 3];
  }
  return out;
}

struct Sink {
  FILE* file;
  bool ok;
};

void Put(void* context, void* data, int size) {
  Sink* sink = static_cast<Sink*>(context);
  if (sink->ok && std::fwrite(data, 1, size_t(size), sink->file) != size_t(size)) sink->ok = false;
}

bool Finish(int encoded, const Sink& sink, const char* kind, std::string* error) {
  if (encoded && sink.ok) return true;
  *error = std::string(kind) + (encoded ? " file: a write failed" : " encoder failed");
  return false;
}

}  // namespace

bool ReadPng(FILE* file, const std::string& path, Image* image, std::string* error) {
  return ReadStb(file, path, "PNG", image, error);
}

bool ReadJpeg(FILE* file, const std::string& path, Image* image, std::string* error) {
  return ReadStb(file, path, "JPEG", image, error);
}

bool WritePng(FILE* file, const Image& image, std::string* error) {
  const int channels = image.has_alpha ? 4 : 3;
  const std::vector<uint8_t> pixels = Interleaved(image, channels);
  Sink sink{file, true};
  const int encoded = stbi_write_png_to_func(Put, &sink, image.width, image.height, channels,
                                             pixels.data(), image.width * channels);
  return Finish(encoded, sink, "PNG", error);
}

bool WriteJpeg(FILE* file, const Image& image, int32_t quality, std::string* error) {
  const std::vector<uint8_t> pixels = Interleaved(image, 3);  // a JPEG has no alpha
  Sink sink{file, true};
  const int encoded =
      stbi_write_jpg_to_func(Put, &sink, image.width, image.height, 3, pixels.data(), quality);
  return Finish(encoded, sink, "JPEG", error);
}

}  // namespace VantyxTool
