// Writes the frame fuzzer's seed corpus: small, mostly valid sessions that reach every stage
// (sizes, rectangles, masks, output and blend modes, tint, tone mapping, both kernel forms,
// each family),
// plus a few that start from a refusal. fuzz/corpus holds its output:
//   vantyx_fuzz_seeds fuzz/corpus
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz/fuzz_input.h"

namespace {

using vantyx_fuzz::Writer;

struct ImageSeed {
  uint8_t extra_stride = 0;  // bytes of row padding
  uint8_t fill = 1;          // content seed
};

struct FrameSeed {
  int32_t w = 8, h = 8;
  bool full = false;
  bool repeat = false;
  bool mask = false;
  uint32_t left = 0, top = 0, right = 0, bottom = 0;  // right/bottom 0: the whole frame
  float intensity = 1.0f, radius = 0.0f;
  uint8_t threshold = 128;
  int32_t strength = 1;
  ImageSeed src, dst, mask_image;
  // Full call only.
  float tint_amount = 0.0f, tint_hue = 0.0f, tint_brightness = 1.0f;
  uint8_t opacity = 255;
  float weight_blur = 0.27f, weight_src = 0.73f;
  uint8_t tone = 0, keep = 1, blur_blended = 1;
  float blend_radius = 0.0f;
  int32_t blend_mode = 5, output_mode = 2;
  float raw_intensity_bits = 0.0f;  // when set with raw_intensity: written as raw bits
  bool raw_intensity = false;
};

void WriteImage(Writer& out, const ImageSeed& img, bool allow_null) {
  out.Byte(0);      // declared size: what the record wants
  out.Byte(0);      // format: the expected one
  out.Byte(0);      // channels: the expected count
  out.Byte(0);      // stride: row + padding ...
  out.Byte(img.extra_stride);  // ... of this many bytes (mod 17)
  out.Byte(img.fill);
  if (allow_null) out.Byte(1);  // data present
  out.Byte(1);                  // reserved left 0
}

void WriteRectEdge(Writer& out, uint32_t v) { out.Byte(uint8_t(v)); }

void WriteFrame(Writer& out, const FrameSeed& f) {
  WriteImage(out, f.src, true);
  if (f.mask) {
    out.Byte(0);  // a mask
    WriteImage(out, f.mask_image, false);
  } else {
    out.Byte(1);  // none
    out.Byte(1);  // and its other fields zero
  }
  const uint32_t right = f.right ? f.right : uint32_t(f.w);
  const uint32_t bottom = f.bottom ? f.bottom : uint32_t(f.h);
  WriteRectEdge(out, f.left);
  WriteRectEdge(out, f.top);
  WriteRectEdge(out, right);
  WriteRectEdge(out, bottom);
  out.Byte(1);  // edges as given
  WriteImage(out, f.dst, true);
  const float max8 = float((f.w > f.h ? f.w : f.h) / 8);
  if (f.raw_intensity)
    out.FloatRaw(f.raw_intensity_bits);
  else
    out.FloatInRange(f.intensity, 0.0f, 2.0f);
  out.FloatRaw(f.radius > max8 ? max8 : f.radius);
  out.Byte(f.threshold);
  if (!f.full) {
    out.Byte(uint8_t(f.strength + 3));
    return;
  }
  out.FloatRaw(f.tint_amount);
  out.FloatRaw(f.tint_hue);
  out.FloatRaw(f.tint_brightness);
  out.Byte(f.opacity);
  out.FloatRaw(f.weight_blur);
  out.FloatRaw(f.weight_src);
  out.FloatRaw(1.0f);  // reserved_f
  out.Byte(f.tone);
  out.Byte(f.keep);
  out.Byte(f.blur_blended);
  out.Byte(0);  // pad
  out.FloatRaw(f.blend_radius);
  out.Byte(uint8_t(f.blend_mode + 3));
  out.Byte(uint8_t(f.output_mode + 3));
  out.Byte(1);  // output mode as given
  out.Byte(uint8_t(f.strength + 3));
  out.Raw32(1);  // reserved_i
}

void SetSize(Writer& out, int32_t w, int32_t h) {
  out.Byte(vantyx_fuzz::kOpSetSize);
  out.Byte(uint8_t(w));
  out.Byte(uint8_t(h));
}

void Frame(Writer& out, const FrameSeed& f) {
  if (f.repeat) {
    out.Byte(vantyx_fuzz::kOpRepeat);
    out.Byte(f.full ? 0 : 1);
  } else {
    out.Byte(f.full ? vantyx_fuzz::kOpProcessFull : vantyx_fuzz::kOpProcess);
  }
  WriteFrame(out, f);
}

// One session: a header, the size, the frame.
std::vector<uint8_t> Session(const FrameSeed& f, bool fast, bool reset_first = false) {
  Writer out;
  out.Byte(fast ? vantyx_fuzz::kHeaderFast : 0);
  if (reset_first) out.Byte(vantyx_fuzz::kOpReset);
  SetSize(out, f.w, f.h);
  Frame(out, f);
  return out.bytes;
}

// A Halation session: the size, then one call with the images and rectangle of `f` and these
// fields (the full call's when `full`).
struct HalationSeed {
  uint8_t opacity = 255, highlight = 203, midtone = 216, show = 203;
  uint8_t radius_code = 36;  // RadiusFromCode: 0..63, 250 for 4096, 251 for 4097
  uint32_t strength = 50;    // 15..104
  bool full = false;
  float gain = 1.0f;
  uint8_t tone = 1, blur_mask = 0;
  int32_t blend_mode = 4, view = 9;
};

// The byte U32FromCode reads back as v (0..249, and 255).
uint8_t U32Code(uint8_t v) { return v < 250 ? v : 250; }

std::vector<uint8_t> HalationSession(const FrameSeed& f, const HalationSeed& h, bool fast) {
  Writer out;
  out.Byte(uint8_t((fast ? vantyx_fuzz::kHeaderFast : 0) | vantyx_fuzz::kHeaderHalation));
  SetSize(out, f.w, f.h);
  out.Byte(h.full ? vantyx_fuzz::kOpProcessFull : vantyx_fuzz::kOpProcess);
  WriteImage(out, f.src, true);
  out.Byte(1);  // no mask ...
  out.Byte(1);  // ... and its other fields zero
  out.Byte(uint8_t(f.left));
  out.Byte(uint8_t(f.top));
  out.Byte(uint8_t(f.right ? f.right : uint32_t(f.w)));
  out.Byte(uint8_t(f.bottom ? f.bottom : uint32_t(f.h)));
  out.Byte(1);  // edges as given
  WriteImage(out, f.dst, true);
  out.Byte(U32Code(h.opacity));
  out.Byte(U32Code(h.highlight));
  out.Byte(h.radius_code);
  out.Byte(1);  // blur_radius_2 copies the radius
  out.Byte(U32Code(h.midtone));
  out.Byte(uint8_t(h.strength - 15));
  out.Byte(U32Code(h.show));
  if (h.full) {
    out.FloatRaw(h.gain);
    out.Byte(h.tone);
    out.Byte(h.blur_mask);
    out.Byte(0);  // padding
    out.Byte(uint8_t(h.blend_mode + 2));
    out.Byte(uint8_t(h.view + 1));
  }
  return out.bytes;
}

// An Infrared session: the size, then one call with the images and rectangle of `f` and these
// fields (the full call's when `full`).
struct InfraredSeed {
  uint8_t opacity = 255;
  float shift = 0.9f, saturation = 0.0f, luminance = 0.0f;
  uint8_t tolerance_code = 10;  // tolerance 2 x code below 200; 250.. the extremes
  int32_t preset = 0;           // -3..245
  bool full = false;
  uint8_t show_original = 0;
  float range = 0.35f, start = 0.11388889f, threshold = 0.1f;
  int32_t blend_mode = 22, view = 9;
};

std::vector<uint8_t> InfraredSession(const FrameSeed& f, const InfraredSeed& r, bool fast) {
  Writer out;
  out.Byte(uint8_t((fast ? vantyx_fuzz::kHeaderFast : 0) | vantyx_fuzz::kHeaderInfrared));
  SetSize(out, f.w, f.h);
  out.Byte(r.full ? vantyx_fuzz::kOpProcessFull : vantyx_fuzz::kOpProcess);
  WriteImage(out, f.src, true);
  out.Byte(1);  // no mask ...
  out.Byte(1);  // ... and its other fields zero
  out.Byte(uint8_t(f.left));
  out.Byte(uint8_t(f.top));
  out.Byte(uint8_t(f.right ? f.right : uint32_t(f.w)));
  out.Byte(uint8_t(f.bottom ? f.bottom : uint32_t(f.h)));
  out.Byte(1);  // edges as given
  WriteImage(out, f.dst, true);
  out.Byte(U32Code(r.opacity));
  out.FloatRaw(r.shift);
  out.FloatRaw(r.saturation);
  out.FloatRaw(r.luminance);
  out.Byte(r.tolerance_code);
  out.Byte(uint8_t(r.preset + 3));
  if (r.full) {
    out.Byte(r.show_original);
    out.FloatRaw(r.range);
    out.FloatRaw(r.start);
    out.FloatRaw(r.threshold);
    out.Raw32(1);  // the flag
    out.Byte(uint8_t(r.blend_mode + 2));
    out.Byte(uint8_t(r.view + 1));
  }
  return out.bytes;
}

bool WriteFile(const std::string& dir, int index, const std::vector<uint8_t>& bytes) {
  char name[64];
  std::snprintf(name, sizeof name, "/seed-%03d", index);
  FILE* file = std::fopen((dir + name).c_str(), "wb");
  if (!file) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && ok;
}

// An Amberfade session: the size, then one call with the images, mask and rectangle of `f`
// and these fields.
struct AmberfadeSeed {
  bool full = false, cool = true;
  float intensity = 1.0f, colour = 0.0f, gamma = 0.8f;
  float gain = 0.33f, radius = 1.0f, contrast = 0.7f, result_radius = 4.0f;
  int32_t threshold = 160, blend_mode = 5, output_mode = 2;
  uint8_t derive = 1;
};

std::vector<uint8_t> AmberfadeSession(const FrameSeed& f, const AmberfadeSeed& a, bool fast) {
  Writer out;
  out.Byte(uint8_t((fast ? vantyx_fuzz::kHeaderFast : 0) | vantyx_fuzz::kHeaderAmberfade));
  SetSize(out, f.w, f.h);
  out.Byte(a.full ? vantyx_fuzz::kOpProcessFull : vantyx_fuzz::kOpProcess);
  WriteImage(out, f.src, true);
  if (f.mask) {
    out.Byte(0);
    WriteImage(out, f.mask_image, false);
  } else {
    out.Byte(1);  // no mask ...
    out.Byte(1);  // ... and its other fields zero
  }
  out.Byte(uint8_t(f.left));
  out.Byte(uint8_t(f.top));
  out.Byte(uint8_t(f.right ? f.right : uint32_t(f.w)));
  out.Byte(uint8_t(f.bottom ? f.bottom : uint32_t(f.h)));
  out.Byte(1);  // edges as given
  WriteImage(out, f.dst, true);
  out.FloatRaw(a.intensity);
  out.FloatRaw(a.colour);
  out.FloatRaw(a.gamma);
  out.Byte(1);  // the look as a byte ...
  out.Byte(a.cool ? 1 : 0);
  if (!a.full) return out.bytes;
  out.FloatRaw(a.gain);
  out.FloatRaw(a.radius);
  out.Byte(uint8_t(a.threshold + 103));
  out.FloatRaw(0.27f);
  out.FloatRaw(0.73f);
  out.FloatRaw(a.contrast);
  out.Byte(1);  // adjust colour
  out.Byte(1);  // blur the result
  out.Byte(0);  // pad
  out.FloatRaw(a.result_radius);
  out.Byte(uint8_t(a.blend_mode + 3));
  out.Byte(uint8_t(a.output_mode + 3));
  out.Byte(1);  // derive as a byte ...
  out.Byte(a.derive);
  return out.bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_FOLDER\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  std::vector<std::vector<uint8_t>> seeds;

  // Basic calls over sizes that hit the alignment and scaling rules, both kernel forms.
  const int32_t sizes[][2] = {{1, 1}, {2, 2}, {3, 2}, {5, 7}, {8, 8}, {16, 9}, {33, 17}, {64, 64}, {64, 1}, {1, 64}};
  int n = 0;
  for (const auto& s : sizes) {
    FrameSeed f;
    f.w = s[0];
    f.h = s[1];
    f.radius = 8.0f;
    f.strength = n % 5;
    f.threshold = uint8_t(40 * (n % 6));
    f.src.extra_stride = uint8_t(n % 3 == 0 ? 0 : 3 + n);
    f.src.fill = uint8_t(n + 1);
    seeds.push_back(Session(f, n % 2 == 0));
    ++n;
  }

  // Full calls: every output mode, a spread of blend modes, tint, tone mapping, custom weights.
  for (int32_t mode = 0; mode <= 28; mode += 2) {
    FrameSeed f;
    f.full = true;
    f.w = 12 + mode % 7;
    f.h = 9 + mode % 5;
    f.blend_mode = mode;
    f.output_mode = (mode / 2) % 4;
    f.radius = 1.0f;
    f.blend_radius = float(mode % 3);
    f.tint_amount = (mode % 4 == 0) ? 0.5f : 0.0f;
    f.tint_hue = (mode % 4 == 0) ? 0.3f : 0.0f;
    f.tint_brightness = (mode % 8 == 0) ? 0.75f : 1.0f;
    f.tone = uint8_t(mode % 3 == 0);
    f.keep = uint8_t(mode % 5 != 0);
    f.blur_blended = uint8_t(mode % 7 != 0);
    f.opacity = uint8_t(255 - 8 * mode);
    f.weight_blur = 0.1f * float(mode % 10);
    f.weight_src = 1.0f - f.weight_blur;
    f.dst.extra_stride = uint8_t(mode % 9);
    seeds.push_back(Session(f, mode % 4 != 2));
  }

  // Masks, sub-rectangles (the destination holds only the rectangle), empty rectangles.
  {
    FrameSeed f;
    f.w = 20;
    f.h = 14;
    f.mask = true;
    f.mask_image.extra_stride = 5;
    f.left = 3, f.top = 2, f.right = 17, f.bottom = 11;
    seeds.push_back(Session(f, true));
    f.full = true;
    f.output_mode = 1;
    seeds.push_back(Session(f, false));
    f.left = 5, f.right = 5;  // empty rectangle, zero-width destination
    seeds.push_back(Session(f, true));
    f.mask = false;
    f.left = 19, f.top = 13, f.right = 20, f.bottom = 14;  // the last pixel only
    f.output_mode = 2;
    seeds.push_back(Session(f, true));
  }

  // The same frame twice (results must not drift), after a Reset, and re-created.
  {
    FrameSeed f;
    f.w = 31;
    f.h = 23;
    f.radius = 3.0f;
    f.repeat = true;
    seeds.push_back(Session(f, true));
    f.full = true;
    f.blend_radius = 2.0f;
    seeds.push_back(Session(f, false, true));

    Writer out;
    out.Byte(vantyx_fuzz::kHeaderFast);
    SetSize(out, 10, 10);
    f.w = f.h = 10;
    f.full = false;
    f.repeat = false;
    Frame(out, f);
    out.Byte(vantyx_fuzz::kOpRecreate);
    SetSize(out, 10, 10);
    Frame(out, f);
    out.Byte(vantyx_fuzz::kOpReset);
    Frame(out, f);  // refused: no size since the Reset
    seeds.push_back(out.bytes);
  }

  // Size changes between frames.
  {
    Writer out;
    out.Byte(0);
    FrameSeed f;
    for (int32_t s : {7, 40, 3, 64}) {
      f.w = s;
      f.h = 70 - s;
      f.h = f.h > 64 ? 64 : f.h;
      SetSize(out, f.w, f.h);
      Frame(out, f);
    }
    seeds.push_back(out.bytes);
  }

  // Engine misuse around a live effect.
  for (uint8_t kind = 0; kind < 5; ++kind) {
    Writer out;
    out.Byte(vantyx_fuzz::kHeaderFast);
    out.Byte(vantyx_fuzz::kOpEngine);
    out.Byte(kind);
    out.Byte(kind);
    SetSize(out, 6, 6);
    FrameSeed f;
    f.w = f.h = 6;
    Frame(out, f);
    seeds.push_back(out.bytes);
  }

  // Refusals to start from: NaN intensity, a bad size, a mismatched source.
  {
    FrameSeed f;
    f.raw_intensity = true;
    f.raw_intensity_bits = __builtin_nanf("");
    seeds.push_back(Session(f, true));
    Writer out;
    out.Byte(0);
    SetSize(out, 0, 9);
    out.Byte(vantyx_fuzz::kOpSetSize);
    out.Byte(vantyx_fuzz::kSideSpecial + 4);  // 1 << 30
    out.Byte(2);
    seeds.push_back(out.bytes);
  }

  // What the fuzzer found once, kept as seeds: a side of INT32_MAX (the aligned width
  // overflowed), a 0 x 0 frame on an unsized effect, blend-blur radii far out of any range.
  {
    Writer out;
    out.Byte(0);
    out.Byte(vantyx_fuzz::kOpSetSize);
    out.Byte(vantyx_fuzz::kSideSpecial + 8);  // INT32_MAX
    out.Byte(1);
    FrameSeed f;
    f.w = f.h = 0;
    Frame(out, f);
    seeds.push_back(out.bytes);
  }
  for (float radius : {-2.0f, 1e30f, 1e9f}) {
    FrameSeed f;
    f.full = true;
    f.w = 14;
    f.h = 11;
    f.blend_radius = radius;
    f.output_mode = radius > 0.0f ? 1 : 2;
    seeds.push_back(Session(f, radius > 1e20f));
  }

  // Halation: both calls, every view and the blur mask on landscape and portrait frames, the
  // edges of the radius and strength ranges, a NaN gain, blend modes, thresholds at 0.
  for (int32_t view = -1; view <= 10; ++view) {
    FrameSeed f;
    f.w = view % 2 ? 14 : 9;
    f.h = view % 2 ? 9 : 15;
    f.src.fill = uint8_t(view + 40);
    HalationSeed h;
    h.full = true;
    h.view = view;
    h.radius_code = uint8_t(3 + view);
    h.highlight = uint8_t(100 + 10 * view);
    h.blur_mask = uint8_t(view == 3);
    h.blend_mode = 2 * (view + 1);
    seeds.push_back(HalationSession(f, h, view % 3 != 0));
  }
  {
    FrameSeed f;
    f.w = 12, f.h = 10;
    HalationSeed h;
    seeds.push_back(HalationSession(f, h, true));
    h.radius_code = 250;  // 4096
    seeds.push_back(HalationSession(f, h, false));
    h.radius_code = 251;  // 4097: refused
    seeds.push_back(HalationSession(f, h, true));
    h.radius_code = 2, h.strength = 19;
    seeds.push_back(HalationSession(f, h, true));
    h.strength = 100, h.show = 0, h.highlight = 0, h.midtone = 0;
    seeds.push_back(HalationSession(f, h, false));
    h.full = true, h.gain = __builtin_nanf(""), h.strength = 20;
    seeds.push_back(HalationSession(f, h, true));
    h.gain = -3e38f, h.blend_mode = 23;
    seeds.push_back(HalationSession(f, h, true));
    h.blend_mode = 22;
    f.left = 2, f.top = 3, f.right = 9, f.bottom = 7;
    seeds.push_back(HalationSession(f, h, false));
    f.w = 1, f.h = 6, f.left = f.top = 0, f.right = 1, f.bottom = 6;  // no half size
    h.view = 0, h.gain = 1.0f;
    seeds.push_back(HalationSession(f, h, true));
  }

  // Infrared: both calls, every view and the original input on landscape and portrait frames,
  // the presets, the whole circle, the tolerance and float edges, NaN, blend modes.
  for (int32_t view : {-1, 0, 1, 5, 7, 9, 10, 11, 12, 13}) {
    FrameSeed f;
    f.w = view % 2 ? 14 : 9;
    f.h = view % 2 ? 9 : 15;
    f.src.fill = uint8_t(3 * view + 40);
    InfraredSeed r;
    r.full = true;
    r.view = view;
    r.preset = view % 3;
    r.show_original = uint8_t(view == 7);
    r.blend_mode = 2 * (view + 1) % 23;
    r.range = view == 11 ? 1.0f : 0.1f * float(view + 2);
    seeds.push_back(InfraredSession(f, r, view % 3 != 0));
  }
  {
    FrameSeed f;
    f.w = 12, f.h = 10;
    InfraredSeed r;
    seeds.push_back(InfraredSession(f, r, true));
    r.preset = 1, r.tolerance_code = 180;  // 360
    seeds.push_back(InfraredSession(f, r, false));
    r.preset = 2, r.tolerance_code = 181;  // 362: refused
    seeds.push_back(InfraredSession(f, r, true));
    r.tolerance_code = 0, r.shift = 1.0f, r.saturation = -1.0f, r.luminance = 1.0f;
    seeds.push_back(InfraredSession(f, r, true));
    r.shift = __builtin_nanf("");
    seeds.push_back(InfraredSession(f, r, false));
    r.full = true, r.shift = 0.5f, r.threshold = 1.0001f;
    seeds.push_back(InfraredSession(f, r, true));
    r.threshold = 0.0f, r.blend_mode = 23;
    seeds.push_back(InfraredSession(f, r, true));
    r.blend_mode = 0, r.start = 0.9f, r.range = 0.2f;  // a band that wraps
    f.left = 2, f.top = 3, f.right = 9, f.bottom = 7;
    seeds.push_back(InfraredSession(f, r, false));
    f.w = 1, f.h = 6, f.left = f.top = 0, f.right = 1, f.bottom = 6;  // no half size
    seeds.push_back(InfraredSession(f, r, true));
  }

  // Amberfade: both calls and both looks, every output mode, gamma, contrast and colour at
  // their edges and past them (unchecked in the full call), a negative threshold and result
  // radius, a mask, a NaN contrast, and no half size.
  for (int32_t k = 0; k < 12; ++k) {
    FrameSeed f;
    f.w = k % 2 ? 15 : 9;
    f.h = k % 2 ? 8 : 13;
    f.mask = k % 4 == 1;
    f.src.fill = uint8_t(90 + k);
    AmberfadeSeed a;
    a.full = k >= 2;
    a.cool = k % 3 != 0;
    a.gamma = k % 5 == 0 ? 1.0f : 0.1f * float(k % 10);
    a.colour = -1.0f + 0.3f * float(k);
    a.output_mode = k % 4;
    a.contrast = k == 7 ? 9.0f : 0.5f + 0.1f * float(k);
    a.threshold = k == 8 ? -40 : 160;
    a.result_radius = k == 9 ? -3.0f : 4.0f;
    a.derive = uint8_t(k % 2);
    seeds.push_back(AmberfadeSession(f, a, k % 3 != 2));
  }
  {
    FrameSeed f;
    f.w = 12, f.h = 10;
    AmberfadeSeed a;
    a.full = true, a.contrast = __builtin_nanf("");
    seeds.push_back(AmberfadeSession(f, a, true));
    f.w = 1, f.h = 6;  // no half size
    a.contrast = 0.7f;
    seeds.push_back(AmberfadeSession(f, a, false));
  }

  int index = 0;
  for (const auto& s : seeds)
    if (!WriteFile(dir, index++, s)) {
      std::fprintf(stderr, "cannot write into %s\n", dir.c_str());
      return 1;
    }
  std::printf("wrote %d seeds to %s\n", index, dir.c_str());
  return 0;
}
