// Helpers shared by the tests: images in owned memory, random content, log capture.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "core/image_view.h"
#include "vantyx.h"

namespace Vantyx {
namespace test {

// True when the processor runs the SSE4.1 forms (fast-form tests skip otherwise).
bool HasSse41();

// An image that owns exactly height x stride bytes (so ASan sees any stray access).
struct Image {
  std::vector<uint8_t> bytes;
  int32_t width = 0;
  int32_t height = 0;
  int32_t stride = 0;
  uint32_t format = PIXEL_BGRA32;

  Image() = default;
  Image(int32_t w, int32_t h, uint32_t fmt = PIXEL_BGRA32, int32_t extra_stride = 0);
  uint8_t* Pixel(int32_t x, int32_t y) { return bytes.data() + size_t(y) * stride + size_t(x) * BytesPerPixel(format); }
  ImageView View(int32_t origin_x = 0, int32_t origin_y = 0);
  ImageDesc Desc();
  void FillRandom(uint32_t seed);
  void Fill(uint8_t value);
  bool operator==(const Image& o) const { return bytes == o.bytes; }
};

// The whole of an image as a strip.
inline ProcessRect Whole(const Image& img) {
  return ProcessRect{0, 0, uint32_t(img.width), uint32_t(img.height)};
}

// Deterministic pseudo-random bytes (xorshift) for reproducible tests.
void FillRandomBytes(uint8_t* data, size_t n, uint32_t seed);

// Captures DebugLog lines while alive.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<std::string> Lines();
  bool Contains(const std::string& text);

 private:
  static void Sink(const char* line, void* user);
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace test
}  // namespace Vantyx
