// The byte format the frame fuzzer reads, shared with the seed generator that writes it.
//
// An input is a header byte followed by operations until the bytes run out. Every value is
// read from the front; a value past the end reads as zero, so any byte string is an input.
// Values go through small "choice" codes so that most bytes give sensible records (sizes that
// match, strides that fit) and a few give the hostile ones (NaN, huge, negative, mismatched).
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace vantyx_fuzz {

// Header bits.
constexpr uint8_t kHeaderFast = 0x01;  // the effect runs its SSE4.1 forms (when the CPU has them)
constexpr uint8_t kHeaderHalation = 0x02;  // the session drives a Halation effect, not BlackMist
constexpr uint8_t kHeaderInfrared = 0x04;  // an Infrared effect (whatever kHeaderHalation says)
constexpr uint8_t kHeaderAmberfade = 0x08;  // an Amberfade effect (when neither bit above is set)

enum Op : uint8_t {
  kOpSetSize = 0,
  kOpProcess = 1,
  kOpProcessFull = 2,
  kOpReset = 3,
  kOpRecreate = 4,   // DeleteEffect + CreateEffect
  kOpRepeat = 5,     // the last process call again, same inputs: same bytes out
  kOpEngine = 6,     // engine misuse: unknown or unbuilt types, wrong-type deletes
  kOpCount = 7,
};

// Frame sides the fuzzer asks for: mostly 1..64; codes at the top of the byte are the hostile
// ones. The target pairs a large side with a small one and skips a size whose working buffers
// would pass 64 MiB, so the fuzzer's memory cap is never what stops it.
constexpr uint8_t kSideSpecial = 0xF0;
inline int32_t SideFromCode(uint8_t code) {
  if (code < kSideSpecial) return int32_t(code % 65);  // 0..64
  static const int32_t kSpecial[16] = {0,          -1,        -7,        INT32_MIN,
                                       1 << 30,    2049,      4097,      65,
                                       INT32_MAX,  INT32_MAX - 3, 2,     3,
                                       1 << 29,    (1 << 29) + 1, 1, 67};
  return kSpecial[code - kSideSpecial];
}

// Floats: a code below 200 is a value in [lo, hi] (given by the field) set by the next byte;
// 200..239 pick a hostile constant; 240 and up read the next four bytes as raw bits.
constexpr uint8_t kFloatInRange = 0;
constexpr uint8_t kFloatSpecial = 200;
constexpr uint8_t kFloatRaw = 240;
inline float SpecialFloat(uint8_t index) {
  const float inf = std::numeric_limits<float>::infinity();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  static const float kSpecial[20] = {nan,  inf,     -inf,   -0.0f,   1e30f,  -1e30f, 3.4028235e38f,
                                     1e-45f, -1.0f, -1e-7f, 2.0000002f, 1.0000001f, 65536.0f,
                                     -65536.0f, 0.0f, 1.0f, 2.0f, 0.5f, 8.0f, 1e9f};
  return kSpecial[index % 20];
}

// Unsigned 32-bit fields: a code below 250 is the value itself; above, the extremes.
inline uint32_t U32FromCode(uint8_t code) {
  if (code < 250) return code;
  static const uint32_t kSpecial[6] = {255, 256, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFEu};
  return kSpecial[code - 250];
}

// Signed preset-like fields: -3..245 directly; above, the extremes.
inline int32_t I32FromCode(uint8_t code) {
  if (code < 249) return int32_t(code) - 3;
  static const int32_t kSpecial[7] = {INT32_MIN, INT32_MAX, -1, -4, 29, 28, 100};
  return kSpecial[code - 249];
}

// Blur radii: mostly 0..63; codes from 250 the edges of the range and past it.
inline int32_t RadiusFromCode(uint8_t code) {
  if (code < 250) return int32_t(code % 64);
  static const int32_t kSpecial[6] = {4096, 4097, -1, INT32_MAX, INT32_MIN, 1000};
  return kSpecial[code - 250];
}

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool Empty() const { return pos_ >= size_; }
  uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  bool Bit(uint8_t one_in) { return one_in != 0 && Byte() % one_in == 0; }
  uint32_t Raw32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t(Byte()) << (8 * i);
    return v;
  }
  float Float(float lo, float hi) {
    const uint8_t code = Byte();
    if (code < kFloatSpecial) return lo + (hi - lo) * (float(Byte()) / 255.0f);
    if (code < kFloatRaw) return SpecialFloat(uint8_t(code - kFloatSpecial));
    const uint32_t bits = Raw32();
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// The writer mirrors the reader for the seed generator.
class Writer {
 public:
  void Byte(uint8_t b) { bytes.push_back(b); }
  void Raw32(uint32_t v) {
    for (int i = 0; i < 4; ++i) Byte(uint8_t(v >> (8 * i)));
  }
  // The in-range code for `value` in [lo, hi] (the nearest of 256 steps).
  void FloatInRange(float value, float lo, float hi) {
    Byte(kFloatInRange);
    const float t = hi > lo ? (value - lo) / (hi - lo) : 0.0f;
    Byte(uint8_t(std::lround(std::fmin(std::fmax(t, 0.0f), 1.0f) * 255.0f)));
  }
  void FloatRaw(float value) {
    Byte(kFloatRaw);
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    Raw32(bits);
  }
  std::vector<uint8_t> bytes;
};

}  // namespace vantyx_fuzz
