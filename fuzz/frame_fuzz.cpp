// Frame-record fuzzer: whatever a host hands the engine, it answers with a documented code,
// never reads or writes outside the images it was given, and never changes its inputs.
//
// Each input drives one BlackMist, Halation, Infrared or Amberfade effect (the header says which) of a long-lived
// engine through SetImageSize, Process, ProcessFull, Reset, re-creation and engine misuse in the
// order the bytes say (format in fuzz_input.h). Images are allocated to exactly stride x height bytes, so AddressSanitizer
// sees any stray access; on top of that the target checks:
//   - every result is a documented code, and the one the validation rules predict;
//   - source and mask bytes never change;
//   - a refused record leaves the destination untouched, an accepted one writes nothing in the
//     row padding past width x 4 bytes;
//   - the same record processed twice in a row gives the same bytes;
//   - the engine owns no effect once the input is done.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "core/debug_log.h"
#include "core/platform.h"
#include "effects/amberfade/amberfade_effect.h"
#include "effects/blackmist/blackmist_effect.h"
#include "effects/halation/halation_effect.h"
#include "effects/infrared/infrared_effect.h"
#include "engine/engine_imp.h"
#include "fuzz/fuzz_input.h"
#include "vantyx.h"

namespace {

using namespace Vantyx;  // NOLINT(build/namespaces)
using vantyx_fuzz::Reader;

constexpr int32_t kOk = 0;
constexpr int32_t kInvalidArg = VX_E_INVALIDARG;
constexpr int32_t kFail = VX_E_FAIL;
constexpr int32_t kNotImpl = VX_E_NOTIMPL;
constexpr int32_t kPointer = VX_E_POINTER;
constexpr int32_t kOutOfMemory = VX_E_OUTOFMEMORY;

// One image may take this many bytes; a larger declaration is clamped (allocation and
// declaration together, so the record still describes exactly what exists).
constexpr uint64_t kMaxImageBytes = 5u << 18;  // 1.25 MiB: a 4097 x 64 frame still fits
constexpr int kMaxOps = 12;

VantyxEngine* g_engine = nullptr;
bool g_has_sse41 = false;

[[noreturn]] void Fail(const char* what, long long a = 0, long long b = 0) {
  std::fprintf(stderr, "frame_fuzz: %s (%lld, 0x%llx)\n", what, a, static_cast<unsigned long long>(b));
  std::abort();
}

bool SameBytes(const uint8_t* a, const uint8_t* b, size_t n) { return n == 0 || std::memcmp(a, b, n) == 0; }

bool Documented(int32_t rc) {
  return rc == kOk || rc == kInvalidArg || rc == kFail || rc == kNotImpl || rc == kPointer ||
         rc == kOutOfMemory;
}

void Expect(bool ok, const char* what, long long a = 0, long long b = 0) {
  if (!ok) Fail(what, a, b);
}

void ExpectDocumented(int32_t rc, const char* call) {
  if (!Documented(rc)) Fail(call, rc, static_cast<uint32_t>(rc));
}

// ---- Images --------------------------------------------------------------------------------

struct TestImage {
  ImageDesc desc{};
  std::unique_ptr<uint8_t[]> storage;
  size_t bytes = 0;
  std::vector<uint8_t> before;  // content handed in
};

uint32_t BytesPer(uint32_t format) { return BytesPerPixel(format) ? BytesPerPixel(format) : 4; }

void FillPattern(uint8_t* p, size_t n, uint32_t seed) {
  uint32_t s = seed * 2654435761u + 0x9E3779B9u;
  if (s == 0) s = 1;
  for (size_t i = 0; i < n; ++i) {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    p[i] = uint8_t(s >> 24);
  }
}

// Reads one image descriptor. `want_*` are what a well-behaved host would declare.
TestImage MakeImage(Reader& in, uint32_t want_w, uint32_t want_h, uint32_t want_format,
                    uint32_t want_channels, bool allow_null) {
  TestImage img;
  ImageDesc& d = img.desc;
  const uint8_t dims = in.Byte();
  switch (dims % 8) {
    case 5:
      d.width = want_w + uint32_t(int32_t(in.Byte() % 3) - 1);
      d.height = want_h + uint32_t(int32_t(in.Byte() % 3) - 1);
      break;
    case 6:
      d.width = uint32_t(vantyx_fuzz::SideFromCode(in.Byte()));
      d.height = uint32_t(vantyx_fuzz::SideFromCode(in.Byte()));
      break;
    case 7:
      d.width = in.Raw32();
      d.height = in.Raw32();
      break;
    default:
      d.width = want_w;
      d.height = want_h;
  }
  const uint8_t format_code = in.Byte();
  d.format = format_code < 224 ? want_format
                               : (format_code == 255 ? 0xFFFFFFFFu : uint32_t(format_code - 224) % 8);
  const uint8_t channel_code = in.Byte();
  d.channels = channel_code < 224 ? want_channels : uint32_t(channel_code - 224);

  const uint64_t row = uint64_t(d.width) * BytesPer(want_format);
  const uint8_t stride_code = in.Byte();
  uint64_t stride;
  switch (stride_code % 8) {
    case 4: stride = row > 0 ? row - 1 : 0; break;
    case 5: stride = 0; break;
    case 6: stride = in.Raw32(); break;
    case 7: stride = row; break;
    default: stride = row + in.Byte() % 17;
  }
  if (stride > UINT32_MAX) stride = UINT32_MAX;

  // Clamp an allocation that would be huge; the declaration follows it.
  uint64_t height = d.height;
  if (height > kMaxImageBytes) height = kMaxImageBytes;
  if (stride * height > kMaxImageBytes) {
    if (stride <= kMaxImageBytes)
      height = kMaxImageBytes / stride;
    else
      stride = kMaxImageBytes / height;
  }
  d.stride = uint32_t(stride);
  d.height = uint32_t(height);

  img.bytes = size_t(stride * height);
  img.storage.reset(new uint8_t[img.bytes]);  // a zero-byte array still has a distinct address
  FillPattern(img.storage.get(), img.bytes, in.Byte());
  d.data = img.storage.get();
  if (allow_null && in.Bit(16)) d.data = nullptr;
  d.reserved = in.Bit(8) ? in.Raw32() : 0;
  img.before.assign(img.storage.get(), img.storage.get() + img.bytes);
  return img;
}

uint32_t RectEdge(Reader& in, uint32_t frame_side) {
  const uint8_t code = in.Byte();
  if (code < 240) return frame_side == 0 ? 0 : code % (frame_side + 1);
  static const uint32_t kSpecial[16] = {0,           1,           64,          65,
                                        0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFEu,
                                        frame_side,  frame_side + 1, 2,        3,
                                        4,           5,           frame_side - 1, 100};
  return kSpecial[code - 240];
}

// ---- The validation rules, as a host reads them ----------------------------------------------

struct Frame {
  int32_t w = 0, h = 0;  // what the effect holds (0 x 0 when created, reset or refused)
};

int32_t ExpectedFrameCode(const Frame& f, const ImageDesc& src, const ImageDesc& mask,
                          const ImageDesc& dst, const ProcessRect& r) {
  const uint32_t w = uint32_t(f.w), h = uint32_t(f.h);
  if (src.width != w || src.height != h || !src.data) return kInvalidArg;
  if (mask.data && (mask.width != w || mask.height != h || mask.format != PIXEL_GRAY8)) return kInvalidArg;
  if (dst.width != r.right - r.left || dst.height != r.bottom - r.top) return kInvalidArg;
  if (src.format != PIXEL_BGRA32 || dst.format != PIXEL_BGRA32) return kNotImpl;
  if (!(r.left <= r.right && r.right <= w && r.top <= r.bottom && r.bottom <= h)) return kInvalidArg;
  if (uint64_t(src.stride) < uint64_t(src.width) * 4 || uint64_t(dst.stride) < uint64_t(dst.width) * 4)
    return kInvalidArg;
  if (src.channels != 4 || dst.channels != 4) return kInvalidArg;
  if (mask.data && (uint64_t(mask.stride) < mask.width || mask.channels != 1)) return kInvalidArg;
  return kOk;
}

bool Finite(float v) { return std::isfinite(v); }

int32_t ExpectedBasicParams(const Frame& f, float intensity, float radius, uint32_t threshold) {
  const float max_radius = float((f.w > f.h ? f.w : f.h) / 8);
  if (!(intensity >= 0.0f && intensity <= 2.0f)) return kInvalidArg;
  if (!(radius >= 0.0f && radius <= max_radius)) return kInvalidArg;
  if (threshold > 255) return kInvalidArg;
  return kOk;
}

// Halation's record checks after the frame's: the field ranges, then the NaN rule, the
// radius limit and the blend mode (the radius in both calls, the others in the full one).
int32_t ExpectedHalationParams(const HalationParamsEx& p, bool full) {
  if (p.opacity > 255 || p.highlight_threshold > 255 || p.blur_radius < 0 ||
      p.midtone_threshold > 255 || p.curve_strength < 20 || p.curve_strength > 100 ||
      p.show_threshold > 255)
    return kInvalidArg;
  if (full && !Finite(p.keyer_gain)) return kInvalidArg;
  if (p.blur_radius > 4096) return kInvalidArg;
  if (full && (p.blend_mode < 0 || p.blend_mode > 22)) return kInvalidArg;
  return kOk;
}

// Infrared's record checks after the frame's: the field ranges (a NaN is out of every range),
// then the blend mode of the full call.
int32_t ExpectedInfraredParams(const InfraredParamsEx& p, bool full) {
  auto in = [](float v, float lo, float hi) { return v >= lo && v <= hi; };
  if (p.opacity > 255 || p.hue_tolerance > 360 || !in(p.hue_shift, 0, 1) ||
      !in(p.saturation, -1, 1) || !in(p.luminance, -1, 1))
    return kInvalidArg;
  if (full && (!in(p.hue_range, 0, 1) || !in(p.hue_start, 0, 1) ||
               !in(p.saturation_threshold, 0, 1) || p.blend_mode < 0 || p.blend_mode > 22))
    return kInvalidArg;
  return kOk;
}

// Amberfade's record checks after the frame's: the basic call's three ranges, or the full
// call's four; then the NaN rule for the full call's unranged floats.
int32_t ExpectedAmberfadeParams(const Frame& f, const AmberfadeFullParam& p, bool full) {
  auto within = [](float v, float lo, float hi) { return v >= lo && v <= hi; };
  if (!full)
    return within(p.colour, -1, 2) && within(p.intensity, 0, 5) && within(p.gamma, 0, 1) ? kOk : kInvalidArg;
  const float max_radius = float((f.w > f.h ? f.w : f.h) / 8);
  if (!within(p.hlr_gain, 0, 2) || !within(p.blur_radius, 0, max_radius) || p.hlr_threshold > 255 ||
      !within(p.gamma, 0, 1))
    return kInvalidArg;
  const bool finite = Finite(p.intensity) && Finite(p.colour) && Finite(p.weight_tint) &&
                      Finite(p.weight_result) && Finite(p.contrast) && Finite(p.result_blur_radius);
  return finite ? kOk : kInvalidArg;
}

// The working buffers SetImageSize makes, in their order, in 64 bits: the answer it must give
// and the bytes it allocates before it answers (buffers made before a refusal stay).
int32_t ExpectedSetSize(uint32_t type, int32_t w, int32_t h, uint64_t* allocated) {
  *allocated = 0;
  if (w < 1 || h < 1) return kInvalidArg;
  auto aligned = [](int64_t n) { return n + n % 4; };
  auto scaled = [&](int32_t n) { return aligned(int64_t(float(n) * 0.5f)); };
  const int64_t aw = aligned(w), ah = aligned(h), sw = scaled(w), sh = scaled(h);
  using Sizes = std::vector<std::vector<int64_t>>;
  const Sizes buffers =
      type == EFFECT_HALATION
          ? Sizes{{sw, sh, 4}, {aw, ah, 4}, {aw, ah, 4}, {aw, ah, 4}, {aw, ah, 4}, {sw, sh, 4},
                  {sw, sh, 4}, {sw, sh, 4}, {aw, aw, 4}, {aw, ah, 4}, {aw, ah, 4}, {aw, ah, 4}}
      : type == EFFECT_INFRARED
          ? Sizes{{aw, ah, 4}, {sw, sh, 4}, {sw, sh, 4}, {sw, sh, 4}, {sw, sh, 4}, {aw, ah, 4},
                  {aw, ah, 4}, {aw, ah, 4}}
          : Sizes{{sw, sh, 4}, {sw, sh, 4}, {aw, ah, 4}, {aw, ah, 4}, {sw, sh, 12}, {aw, ah, 12}};
  for (const auto& b : buffers) {
    const uint64_t stride = uint64_t(uint32_t(b[0])) * uint64_t(b[2]);
    const uint64_t total = stride * uint64_t(b[1]);
    if (stride > UINT32_MAX || total > UINT32_MAX) return kInvalidArg;
    *allocated += total;
  }
  return kOk;
}

// ---- One frame -----------------------------------------------------------------------------

struct Call {
  TestImage src, mask, dst;
  ProcessRect rect{};
  uint32_t type = EFFECT_BLACKMIST;
  bool full = false;
  BlackMistParam basic{};
  BlackMistFullParam all{};
  HalationParams halation_basic{};
  HalationParamsEx halation_all{};
  InfraredParams infrared_basic{};
  InfraredParamsEx infrared_all{};
  AmberfadeParam amberfade_basic{};
  AmberfadeFullParam amberfade_all{};
  bool skip = false;  // legal, but its blur would take longer than a fuzzer run may
  int32_t expected = kOk;       // what the rules say; kOk means "accepted"
  bool null_dst_ok = false;     // accepted with a null destination: a stage may answer 0x80004003
  bool unranged_ok = false;     // accepted with an unusable blend mode or blend-blur radius
  // A side below 2 has no half-size image: resampling answers 0x80004005, or 0x80004003 while
  // the effect has no working buffers at all (never sized, or Reset).
  bool no_half_size = false;
  // 0 x 0 (never sized, Reset, or a refused size that left stale half sizes behind): the first
  // stage that needs a working image refuses in its own way, 0x80070057 included.
  bool unsized = false;
};

void ReadHalation(Reader& in, const Frame& frame, Call& c);
void ReadInfrared(Reader& in, const Frame& frame, Call& c);
void ReadAmberfade(Reader& in, const Frame& frame, Call& c);

Call ReadCall(Reader& in, const Frame& frame, uint32_t type, bool full) {
  Call c;
  c.type = type;
  c.full = full;
  const uint32_t fw = uint32_t(frame.w), fh = uint32_t(frame.h);
  c.src = MakeImage(in, fw, fh, PIXEL_BGRA32, 4, true);
  if (in.Bit(3)) {
    c.mask = MakeImage(in, fw, fh, PIXEL_GRAY8, 1, false);
  } else {
    c.mask.desc = ImageDesc{};
    // A null mask is ignored whatever else it says.
    if (in.Bit(4)) {
      c.mask.desc.width = in.Raw32();
      c.mask.desc.format = in.Raw32();
    }
  }
  c.rect.left = RectEdge(in, fw);
  c.rect.top = RectEdge(in, fh);
  c.rect.right = RectEdge(in, fw);
  c.rect.bottom = RectEdge(in, fh);
  if (in.Bit(2)) {  // mostly a well-formed rectangle
    if (c.rect.left > c.rect.right) std::swap(c.rect.left, c.rect.right);
    if (c.rect.top > c.rect.bottom) std::swap(c.rect.top, c.rect.bottom);
  }
  c.dst = MakeImage(in, c.rect.right - c.rect.left, c.rect.bottom - c.rect.top, PIXEL_BGRA32, 4, true);
  c.null_dst_ok = c.dst.desc.data == nullptr;
  c.no_half_size = frame.w < 2 || frame.h < 2;
  c.unsized = frame.w == 0 || frame.h == 0;
  if (type == EFFECT_HALATION) {
    ReadHalation(in, frame, c);
    return c;
  }
  if (type == EFFECT_INFRARED) {
    ReadInfrared(in, frame, c);
    return c;
  }
  if (type == EFFECT_AMBERFADE) {
    ReadAmberfade(in, frame, c);
    return c;
  }

  const int32_t max8 = (frame.w > frame.h ? frame.w : frame.h) / 8;
  const float intensity = in.Float(0.0f, 2.0f);
  const float radius = in.Float(0.0f, float(max8));
  const uint32_t threshold = vantyx_fuzz::U32FromCode(in.Byte());
  int32_t params = ExpectedBasicParams(frame, intensity, radius, threshold);
  if (!full) {
    BlackMistParam& p = c.basic;
    p.src = c.src.desc;
    p.mask = c.mask.desc;
    p.dst = c.dst.desc;
    p.light_intensity = intensity;
    p.soft_radius = radius;
    p.hlr_threshold = threshold;
    p.strength = vantyx_fuzz::I32FromCode(in.Byte());
    p.process_rect = c.rect;
  } else {
    BlackMistFullParam& p = c.all;
    p.src = c.src.desc;
    p.mask = c.mask.desc;
    p.dst = c.dst.desc;
    p.light_intensity = intensity;
    p.soft_radius = radius;
    p.hlr_threshold = threshold;
    p.tint_amount = in.Float(0.0f, 4.0f);
    p.tint_hue = in.Float(0.0f, 1.0f);
    p.tint_brightness = in.Float(0.0f, 1.0f);
    p.blend_opacity = vantyx_fuzz::U32FromCode(in.Byte());
    p.weight_blur = in.Float(-1.0f, 2.0f);
    p.weight_src = in.Float(-1.0f, 2.0f);
    p.reserved_f = in.Float(0.0f, 2.0f);
    p.use_tone_mapping = in.Byte();
    p.keep_saturation = in.Byte();
    p.blur_blended = in.Byte();
    p.pad = in.Byte();
    p.blend_blur_radius = in.Float(0.0f, float(max8) + 4.0f);
    p.blend_mode = vantyx_fuzz::I32FromCode(in.Byte());
    p.output_mode = vantyx_fuzz::I32FromCode(in.Byte()) % 6;
    if (in.Bit(8)) p.output_mode = vantyx_fuzz::I32FromCode(in.Byte());
    p.strength = vantyx_fuzz::I32FromCode(in.Byte()) % 6;
    p.reserved_i = int32_t(in.Raw32());
    p.process_rect = c.rect;
    if (params == kOk &&
        (!(p.tint_amount >= 0.0f) || !(p.tint_hue >= 0.0f && p.tint_hue <= 1.0f) ||
         p.blend_opacity > 255 || !(p.tint_brightness >= 0.0f && p.tint_brightness <= 1.0f)))
      params = kInvalidArg;
    if (params == kOk &&
        !(Finite(p.tint_amount) && Finite(p.tint_hue) && Finite(p.tint_brightness) &&
          Finite(p.weight_blur) && Finite(p.weight_src) && Finite(p.reserved_f) &&
          Finite(p.blend_blur_radius)))
      params = kInvalidArg;
    // Neither has a range: an unknown mode fails the blend, a radius that truncates below 0
    // fails the second blur ("BoxBlurH"), both with 0x80070057.
    c.unranged_ok = p.blend_mode < 0 || p.blend_mode > 28 ||
                    2.0f * p.blend_blur_radius * 0.5f + 0.5f <= -1.0f;
  }
  c.expected = ExpectedFrameCode(frame, c.src.desc, c.mask.desc, c.dst.desc, c.rect);
  if (c.expected == kOk) c.expected = params;
  return c;
}

// The Halation fields after the images and the rectangle; the basic record is the full one's
// first fields, as the basic call stores them.
void ReadHalation(Reader& in, const Frame& frame, Call& c) {
  HalationParamsEx& p = c.halation_all;
  p.src = c.src.desc;
  p.mask = c.mask.desc;
  p.dst = c.dst.desc;
  p.opacity = vantyx_fuzz::U32FromCode(in.Byte());
  p.highlight_threshold = vantyx_fuzz::U32FromCode(in.Byte());
  p.blur_radius = vantyx_fuzz::RadiusFromCode(in.Byte());
  p.blur_radius_2 = in.Bit(8) ? in.Raw32() : uint32_t(p.blur_radius);
  p.midtone_threshold = vantyx_fuzz::U32FromCode(in.Byte());
  const uint8_t strength = in.Byte();
  p.curve_strength = strength < 200 ? 15u + strength % 90u : vantyx_fuzz::U32FromCode(strength);
  p.show_threshold = vantyx_fuzz::U32FromCode(in.Byte());
  p.process_rect = c.rect;
  if (c.full) {
    p.keyer_gain = in.Float(-2.0f, 4.0f);
    p.tone_mapping = in.Byte();
    p.show_blur_mask = uint8_t(in.Byte() % 3);
    p.pad[0] = in.Byte();
    p.blend_mode = int32_t(in.Byte() % 26) - 2;
    p.debug_view = int32_t(in.Byte() % 13) - 1;
  }
  c.halation_basic = HalationParams{p.src, p.mask, p.dst, p.opacity, p.highlight_threshold,
                                    p.blur_radius, p.midtone_threshold, p.curve_strength,
                                    p.show_threshold, p.process_rect};
  c.expected = ExpectedFrameCode(frame, c.src.desc, c.mask.desc, c.dst.desc, c.rect);
  if (c.expected == kOk) c.expected = ExpectedHalationParams(p, c.full);
  // The plain blur costs about half width x half height x (2 radius + 1) per pass.
  const int64_t taps = 2 * int64_t(p.blur_radius > 0 ? p.blur_radius : 0) + 1;
  c.skip = c.expected == kOk && int64_t(frame.w / 2 + 4) * int64_t(frame.h / 2 + 4) * taps > (4 << 20);
}

// The Amberfade fields after the images and the rectangle; the basic record takes the full
// one's intensity, colour, gamma and look.
void ReadAmberfade(Reader& in, const Frame& frame, Call& c) {
  AmberfadeFullParam& p = c.amberfade_all;
  p.src = c.src.desc;
  p.mask = c.mask.desc;
  p.dst = c.dst.desc;
  p.process_rect = c.rect;
  p.intensity = in.Float(-1.0f, 6.0f);
  p.colour = in.Float(-3.0f, 4.0f);
  p.gamma = in.Float(0.0f, 1.0f);
  p.cool_look = in.Bit(8) ? int32_t(in.Raw32()) : int32_t(in.Byte() % 2);
  if (c.full) {
    const int32_t max8 = (frame.w > frame.h ? frame.w : frame.h) / 8;
    p.hlr_gain = in.Float(0.0f, 2.0f);
    p.blur_radius = in.Float(0.0f, float(max8));
    // Ordinary codes reach below 0; the special ones keep the 32-bit edges.
    const uint8_t threshold = in.Byte();
    p.hlr_threshold = vantyx_fuzz::I32FromCode(threshold) - (threshold < 249 ? 100 : 0);
    p.weight_tint = in.Float(-1.0f, 2.0f);
    p.weight_result = in.Float(-1.0f, 2.0f);
    p.contrast = in.Float(-2.0f, 4.0f);
    p.adjust_colour_on = in.Byte();
    p.blur_result_on = in.Byte();
    p.pad[0] = in.Byte();
    p.result_blur_radius = in.Float(-4.0f, float(max8) + 4.0f);
    p.blend_mode = vantyx_fuzz::I32FromCode(in.Byte());
    p.output_mode = vantyx_fuzz::I32FromCode(in.Byte()) % 6;
    p.derive_from_intensity = in.Bit(8) ? int32_t(in.Raw32()) : int32_t(in.Byte() % 2);
    // Unranged: an unknown mode fails the blend, a result radius that truncates below 0 fails
    // the result blur ("BoxBlurH"), both with 0x80070057.
    c.unranged_ok = p.blend_mode < 0 || p.blend_mode > 28 ||
                    2.0f * (p.result_blur_radius * 0.5f) + 0.5f <= -1.0f;
  }
  c.amberfade_basic = AmberfadeParam{p.src, p.mask, p.dst, p.intensity, p.colour, p.gamma,
                                     uint8_t(p.cool_look), {}, p.process_rect};
  c.expected = ExpectedFrameCode(frame, c.src.desc, c.mask.desc, c.dst.desc, c.rect);
  if (c.expected == kOk) c.expected = ExpectedAmberfadeParams(frame, p, c.full);
}

// The Infrared fields after the images and the rectangle; the basic record takes the full
// one's fields that it has.
void ReadInfrared(Reader& in, const Frame& frame, Call& c) {
  InfraredParamsEx& p = c.infrared_all;
  p.src = c.src.desc;
  p.mask = c.mask.desc;
  p.dst = c.dst.desc;
  p.opacity = vantyx_fuzz::U32FromCode(in.Byte());
  p.hue_shift = in.Float(0.0f, 1.0f);
  p.saturation = in.Float(-1.0f, 1.0f);
  p.luminance = in.Float(-1.0f, 1.0f);
  const uint8_t tolerance = in.Byte();
  p.hue_tolerance = tolerance < 200 ? uint32_t(tolerance) * 2u : vantyx_fuzz::U32FromCode(tolerance);
  p.preset = uint32_t(vantyx_fuzz::I32FromCode(in.Byte()));
  p.process_rect = c.rect;
  if (c.full) {
    p.show_original = uint32_t(in.Byte() % 3);
    p.hue_range = in.Float(0.0f, 1.0f);
    p.hue_start = in.Float(0.0f, 1.0f);
    p.saturation_threshold = in.Float(0.0f, 1.0f);
    p.flag = in.Raw32();
    p.blend_mode = int32_t(in.Byte() % 26) - 2;
    p.debug_view = int32_t(in.Byte() % 15) - 1;
  }
  c.infrared_basic = InfraredParams{p.src,       p.mask,          p.dst,    p.opacity,
                                    p.hue_shift, p.saturation,    p.luminance,
                                    p.hue_tolerance, p.preset,    p.process_rect};
  c.expected = ExpectedFrameCode(frame, c.src.desc, c.mask.desc, c.dst.desc, c.rect);
  if (c.expected == kOk) c.expected = ExpectedInfraredParams(p, c.full);
}

int32_t Run(void* effect, const Call& c) {
  if (c.type == EFFECT_INFRARED) {
    InfraredFull* e = AsInfraredFull(effect);
    return c.full ? e->ProcessFull(&c.infrared_all) : e->Process(&c.infrared_basic);
  }
  if (c.type == EFFECT_AMBERFADE) {
    AmberfadeFull* a = AsAmberfadeFull(effect);
    return c.full ? a->ProcessFull(&c.amberfade_all) : a->Process(&c.amberfade_basic);
  }
  if (c.type == EFFECT_HALATION) {
    HalationFull* h = AsHalationFull(effect);
    return c.full ? h->ProcessFull(&c.halation_all) : h->Process(&c.halation_basic);
  }
  BlackMistFull* m = AsBlackMistFull(effect);
  return c.full ? m->ProcessFull(&c.all) : m->Process(&c.basic);
}

void CheckInputsKept(const Call& c) {
  Expect(SameBytes(c.src.storage.get(), c.src.before.data(), c.src.bytes), "source changed");
  if (c.mask.storage) Expect(SameBytes(c.mask.storage.get(), c.mask.before.data(), c.mask.bytes), "mask changed");
}

void CheckResult(const Call& c, int32_t rc) {
  ExpectDocumented(rc, c.full ? "ProcessFull: undocumented code" : "Process: undocumented code");
  CheckInputsKept(c);
  const TestImage& dst = c.dst;
  if (c.expected != kOk) {
    Expect(rc == c.expected, "refused with another code than the rules give", rc, uint32_t(c.expected));
    Expect(SameBytes(dst.storage.get(), dst.before.data(), dst.bytes), "refused record wrote dst");
    return;
  }
  const bool allowed = rc == kOk || (rc == kPointer && c.null_dst_ok) ||
                       (rc == kInvalidArg && c.unranged_ok) || ((rc == kFail || rc == kPointer) && c.no_half_size) ||
                       (rc != kOk && c.unsized);
  Expect(allowed, "accepted record failed", rc, uint32_t(rc));
  // Only width x 4 bytes of each of the first `height` rows belong to the picture.
  const ImageDesc& d = dst.desc;
  const size_t row = size_t(d.width) * 4;
  for (size_t y = 0; y < d.height && row < d.stride; ++y) {
    const size_t off = y * d.stride + row;
    if (!SameBytes(dst.storage.get() + off, dst.before.data() + off, d.stride - row))
      Fail("write into the destination's row padding", static_cast<long long>(y), d.stride);
  }
}

void ProcessOnce(void* effect, const Call& c) {
  if (!c.skip) CheckResult(c, Run(effect, c));
}

void ProcessTwice(void* effect, Call& c) {
  if (c.skip) return;
  const int32_t rc1 = Run(effect, c);
  CheckResult(c, rc1);
  const std::vector<uint8_t> first(c.dst.storage.get(), c.dst.storage.get() + c.dst.bytes);
  if (c.dst.bytes) std::memcpy(c.dst.storage.get(), c.dst.before.data(), c.dst.bytes);
  const int32_t rc2 = Run(effect, c);
  CheckResult(c, rc2);
  Expect(rc1 == rc2, "same record, different code", rc1, uint32_t(rc2));
  if (rc1 == kOk)
    Expect(SameBytes(first.data(), c.dst.storage.get(), c.dst.bytes), "same record, different bytes");
}

// ---- The effect's life -----------------------------------------------------------------------

struct Session {
  void* handle = nullptr;
  uint32_t type = EFFECT_BLACKMIST;
  Frame frame;
  bool fast = true;

  void Create() {
    Expect(handle == nullptr, "create over a live effect");
    const int32_t rc = g_engine->CreateEffect(&handle, type);
    Expect(rc == kOk && handle != nullptr, "CreateEffect failed", rc, type);
    // The processor level decides between the plain and SSE4.1 kernels; try both.
    const CpuInfo info{platform::ProcessorCount(), fast && g_has_sse41 ? SIMD_SSE41 : SIMD_NONE, 0};
    if (type == EFFECT_HALATION)
      static_cast<HalationEffect*>(AsHalationFull(handle))->SetCpuInfo(&info);
    else if (type == EFFECT_INFRARED)
      static_cast<InfraredEffect*>(AsInfraredFull(handle))->SetCpuInfo(&info);
    else if (type == EFFECT_AMBERFADE)
      static_cast<AmberfadeEffect*>(AsAmberfadeFull(handle))->SetCpuInfo(&info);
    else
      static_cast<BlackMistEffect*>(AsBlackMistFull(handle))->SetCpuInfo(&info);
    frame = Frame{};
  }
  void Delete() {
    if (!handle) return;
    const int32_t rc = g_engine->DeleteEffect(&handle, type);
    Expect(rc == kOk && handle == nullptr, "DeleteEffect failed", rc);
  }
  int32_t SetImageSize(int32_t w, int32_t h) {
    if (type == EFFECT_INFRARED) return AsInfraredFull(handle)->SetImageSize(w, h);
    if (type == EFFECT_AMBERFADE) return AsAmberfadeFull(handle)->SetImageSize(w, h);
    return type == EFFECT_HALATION ? AsHalationFull(handle)->SetImageSize(w, h)
                                   : AsBlackMistFull(handle)->SetImageSize(w, h);
  }
  int32_t Reset() {
    if (type == EFFECT_INFRARED) return AsInfraredFull(handle)->Reset();
    if (type == EFFECT_AMBERFADE) return AsAmberfadeFull(handle)->Reset();
    return type == EFFECT_HALATION ? AsHalationFull(handle)->Reset() : AsBlackMistFull(handle)->Reset();
  }
  int32_t ProcessNull(bool full) {
    if (type == EFFECT_INFRARED)
      return full ? AsInfraredFull(handle)->ProcessFull(nullptr) : AsInfraredFull(handle)->Process(nullptr);
    if (type == EFFECT_AMBERFADE)
      return full ? AsAmberfadeFull(handle)->ProcessFull(nullptr) : AsAmberfadeFull(handle)->Process(nullptr);
    if (type == EFFECT_HALATION)
      return full ? AsHalationFull(handle)->ProcessFull(nullptr) : AsHalationFull(handle)->Process(nullptr);
    return full ? AsBlackMistFull(handle)->ProcessFull(nullptr) : AsBlackMistFull(handle)->Process(nullptr);
  }
};

void SetSize(Session& s, Reader& in) {
  int32_t w = vantyx_fuzz::SideFromCode(in.Byte());
  int32_t h = vantyx_fuzz::SideFromCode(in.Byte());
  // Two large sides would allocate gigabytes of working buffers: keep one of them small.
  auto large = [](int32_t v) { return v > 64 || v < -64; };
  if (large(w) && large(h)) h = int32_t(uint32_t(h) % 65u);
  uint64_t allocated = 0;
  const int32_t expected = ExpectedSetSize(s.type, w, h, &allocated);
  // A size that fits the rules but takes gigabytes (1 << 29 by 2 makes two 2 GiB buffers
  // before it is refused) is legal for a host; here it would only hit the fuzzer's memory cap.
  if (allocated > (64u << 20)) return;
  const int32_t rc = s.SetImageSize(w, h);
  ExpectDocumented(rc, "SetImageSize: undocumented code");
  Expect(rc == expected, "SetImageSize: unexpected code", rc, uint32_t(expected));
  if (rc == kOk)
    s.frame = Frame{w, h};
  else if (w >= 1 && h >= 1)
    s.frame = Frame{};  // a failed creation forgets the size
}

void EngineMisuse(Session& s, Reader& in) {
  switch (in.Byte() % 5) {
    case 0: {  // every family, built or not, and codes that are not families
      static const uint32_t kTypes[7] = {0, 1, 2, 3, 4, 5, 0xFFFFFFFFu};
      const uint32_t type = kTypes[in.Byte() % 7];
      void* other = nullptr;
      const int32_t rc = g_engine->CreateEffect(&other, type);
      ExpectDocumented(rc, "CreateEffect: undocumented code");
      if (type == 0 || type > 4) Expect(rc == kOk && other == nullptr, "unknown type created something", rc);
      if (rc != kOk) Expect(other == nullptr, "failed CreateEffect left a pointer");
      if (other) Expect(g_engine->DeleteEffect(&other, type) == kOk && !other, "DeleteEffect of a new family");
      break;
    }
    case 1: {  // create into a slot that already holds something
      void* slot = s.handle ? s.handle : static_cast<void*>(&slot);
      void* const before = slot;
      Expect(g_engine->CreateEffect(&slot, s.type) == kFail && slot == before,
             "CreateEffect over a non-null slot");
      break;
    }
    case 2: {  // hand the effect back under another type: refused, effect kept
      static const uint32_t kTypes[6] = {0, 1, 2, 3, 4, 5};
      uint32_t type = kTypes[in.Byte() % 6];
      if (type == s.type) type = 5;
      void* h = s.handle;
      Expect(g_engine->DeleteEffect(&h, type) == kFail && h == s.handle,
             "DeleteEffect with a wrong type");
      break;
    }
    case 3: {  // null and foreign pointers
      void* none = nullptr;
      Expect(g_engine->DeleteEffect(&none, s.type) == kFail, "DeleteEffect(null)");
      int local = 0;
      void* foreign = &local;
      Expect(g_engine->DeleteEffect(&foreign, s.type) == kFail && foreign == &local,
             "DeleteEffect(foreign)");
      ExpectDocumented(s.ProcessNull(false), "Process(null)");
      ExpectDocumented(s.ProcessNull(true), "ProcessFull(null)");
      break;
    }
    default: {  // a second effect alive beside the first, deleted again
      void* second = nullptr;
      Expect(g_engine->CreateEffect(&second, s.type) == kOk && second, "second effect");
      Expect(g_engine->DeleteEffect(&second, s.type) == kOk && !second, "second delete");
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Refused records are logged one line each; a fuzzer makes millions of them.
  if (!std::getenv("VANTYX_FUZZ_LOG")) SetLogSink([](const char*, void*) {}, nullptr);
  g_has_sse41 = platform::MeasureSimdLevel() >= SIMD_SSE41;
  CreateVantyxEngine(&g_engine);
  if (!g_engine) Fail("CreateVantyxEngine failed");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in(data, size);
  Session s;
  const uint8_t header = in.Byte();
  s.fast = (header & vantyx_fuzz::kHeaderFast) != 0;
  s.type = (header & vantyx_fuzz::kHeaderInfrared) != 0    ? EFFECT_INFRARED
           : (header & vantyx_fuzz::kHeaderHalation) != 0  ? EFFECT_HALATION
           : (header & vantyx_fuzz::kHeaderAmberfade) != 0 ? EFFECT_AMBERFADE
                                                            : EFFECT_BLACKMIST;
  s.Create();
  for (int op = 0; op < kMaxOps && !in.Empty(); ++op) {
    switch (in.Byte() % vantyx_fuzz::kOpCount) {
      case vantyx_fuzz::kOpSetSize: SetSize(s, in); break;
      case vantyx_fuzz::kOpProcess: ProcessOnce(s.handle, ReadCall(in, s.frame, s.type, false)); break;
      case vantyx_fuzz::kOpProcessFull: ProcessOnce(s.handle, ReadCall(in, s.frame, s.type, true)); break;
      case vantyx_fuzz::kOpReset:
        Expect(s.Reset() == kOk, "Reset failed");
        s.frame = Frame{};
        break;
      case vantyx_fuzz::kOpRecreate:
        s.Delete();
        s.Create();
        break;
      case vantyx_fuzz::kOpRepeat: {
        const bool full = in.Bit(2);
        Call c = ReadCall(in, s.frame, s.type, full);
        ProcessTwice(s.handle, c);
        break;
      }
      default: EngineMisuse(s, in); break;
    }
  }
  s.Delete();
  Expect(static_cast<VantyxEngineImp*>(g_engine)->EffectCount(s.type) == 0, "engine kept an effect");
  return 0;
}
