// A short host session through the shared library and nothing else: one engine, one BlackMist
// effect, a few small frames with and without a mask, a refusal, a size change, Reset, delete.
// tools/ci/valgrind.sh builds it against libvantyx.so and runs it under memcheck, which must
// report no error and no leak. It only includes the public header, compiled as C++11.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vantyx.h"

using namespace Vantyx;

namespace {

int g_failures = 0;

void Check(bool ok, const char* what, int32_t rc) {
  if (ok) return;
  std::fprintf(stderr, "smoke: %s (0x%08x)\n", what, static_cast<unsigned>(rc));
  ++g_failures;
}

struct Picture {
  Picture(uint32_t w, uint32_t h, uint32_t bpp, uint32_t padding, uint32_t seed)
      : width(w), height(h), stride(w * bpp + padding), bytes(size_t(stride) * h) {
    uint32_t s = seed * 2654435761u + 1u;
    for (size_t i = 0; i < bytes.size(); ++i) {
      s = s * 1664525u + 1013904223u;
      bytes[i] = static_cast<uint8_t>(s >> 24);
    }
  }
  ImageDesc Desc(uint32_t channels, uint32_t format) {
    const ImageDesc d = {bytes.empty() ? 0 : &bytes[0], width, height, stride, channels, format, 0};
    return d;
  }
  uint32_t width, height, stride;
  std::vector<uint8_t> bytes;
};

uint32_t Checksum(const std::vector<uint8_t>& bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); ++i) sum = sum * 31u + bytes[i];
  return sum;
}

}  // namespace

int main() {
  VantyxEngine* engine = 0;
  CreateVantyxEngine(&engine);
  if (!engine) {
    std::fprintf(stderr, "smoke: no engine\n");
    return 1;
  }
  void* handle = 0;
  Check(engine->CreateEffect(&handle, EFFECT_BLACKMIST) == VX_OK && handle, "CreateEffect", 0);
  if (!handle) return 1;
  BlackMistFull* effect = AsBlackMistFull(handle);

  // Families not built yet, and an unknown type.
  for (uint32_t type = 2; type <= 5; ++type) {
    void* other = 0;
    const int32_t rc = engine->CreateEffect(&other, type);
    Check(rc == VX_OK || rc == VX_E_NOTIMPL, "CreateEffect(other)", rc);
    if (other) engine->DeleteEffect(&other, type);
  }

  uint32_t sums = 0;
  const uint32_t sizes[2][2] = {{37, 23}, {20, 31}};
  for (int s = 0; s < 2; ++s) {
    const uint32_t w = sizes[s][0], h = sizes[s][1];
    Check(effect->SetImageSize(int32_t(w), int32_t(h)) == VX_OK, "SetImageSize", 0);
    Picture src(w, h, 4, 8, 1 + s), mask(w, h, 1, 3, 7 + s);

    // Basic call over the whole frame.
    Picture dst(w, h, 4, 0, 0);
    BlackMistParam basic = BlackMistParam();  // zeroed: no mask
    basic.src = src.Desc(4, PIXEL_BGRA32);
    basic.dst = dst.Desc(4, PIXEL_BGRA32);
    basic.light_intensity = 1.2f;
    basic.soft_radius = 2.0f;
    basic.hlr_threshold = 90;
    basic.strength = 1;
    basic.process_rect.right = w;
    basic.process_rect.bottom = h;
    int32_t rc = effect->Process(&basic);
    Check(rc == VX_OK, "Process", rc);
    sums ^= Checksum(dst.bytes);  // reads every output byte: memcheck flags undefined ones

    // Full call with a mask over a sub-rectangle, every output mode.
    for (int32_t mode = 0; mode < 4; ++mode) {
      Picture part(w - 5, h - 4, 4, 4, 0);
      BlackMistFullParam full = BlackMistFullParam();
      full.src = basic.src;
      full.mask = mask.Desc(1, PIXEL_GRAY8);
      full.dst = part.Desc(4, PIXEL_BGRA32);
      full.light_intensity = 0.8f;
      full.soft_radius = 1.0f;
      full.hlr_threshold = 60;
      full.tint_amount = 0.3f;
      full.tint_hue = 0.1f;
      full.tint_brightness = 0.9f;
      full.blend_opacity = 200;
      full.weight_blur = 0.3f;
      full.weight_src = 0.7f;
      full.reserved_f = 1.0f;
      full.use_tone_mapping = full.keep_saturation = full.blur_blended = 1;
      full.blend_blur_radius = 1.5f;
      full.blend_mode = 3 + 7 * mode;
      full.output_mode = mode;
      full.strength = 2;
      full.reserved_i = 1;
      full.process_rect.left = 2;
      full.process_rect.top = 1;
      full.process_rect.right = w - 3;
      full.process_rect.bottom = h - 3;
      rc = effect->ProcessFull(&full);
      Check(rc == VX_OK, "ProcessFull", rc);
      sums ^= Checksum(part.bytes);
    }

    // A refused record: intensity out of range.
    basic.light_intensity = 3.0f;
    rc = effect->Process(&basic);
    Check(rc == VX_E_INVALIDARG, "Process(bad intensity)", rc);
  }
  Check(effect->Reset() == VX_OK, "Reset", 0);

  // A second effect left for the engine to delete.
  void* left = 0;
  Check(engine->CreateEffect(&left, EFFECT_BLACKMIST) == VX_OK && left, "CreateEffect(second)", 0);
  if (left) Check(AsBlackMistFull(left)->SetImageSize(16, 16) == VX_OK, "SetImageSize(second)", 0);

  Check(engine->DeleteEffect(&handle, EFFECT_BLACKMIST) == VX_OK && !handle, "DeleteEffect", 0);
  DeleteVantyxEngine(&engine);
  Check(engine == 0, "DeleteVantyxEngine", 0);

  std::printf("smoke: checksum %08x, %d failure(s)\n", static_cast<unsigned>(sums), g_failures);
  return g_failures == 0 ? 0 : 1;
}
