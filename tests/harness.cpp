#include "harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>

namespace Vantyx {
namespace test {
namespace {

// Under ThreadSanitizer every memory access costs ten times as much and a full frame finds no
// race that the smaller frames do not: the full frames are left out there.
#if defined(__SANITIZE_THREAD__)
constexpr bool kFullFrames = false;
#else
constexpr bool kFullFrames = true;
#endif

uint32_t Mix(uint32_t h, uint32_t v) { return (h ^ v) * 16777619u; }

uint32_t HashName(const std::string& s) {
  uint32_t h = 2166136261u;
  for (char ch : s) h = Mix(h, uint8_t(ch));
  return h;
}

bool IsFloat(uint32_t format) { return format == PIXEL_GRAYF32 || format == PIXEL_FLOAT96; }

// Finite values in [-0.5, 1.5), or (any_bits) every other lane left as random bits.
void FillFloats(Image& img, bool any_bits) {
  for (int32_t y = 0; y < img.height; ++y) {
    uint8_t* row = img.Pixel(0, y);
    for (int32_t k = 0; k < img.width * int32_t(BytesPerPixel(img.format)) / 4; ++k) {
      uint32_t bits;
      std::memcpy(&bits, row + 4 * k, 4);
      if (any_bits && (k & 1)) continue;
      const float f = float(bits % 8000u) / 4000.0f - 0.5f;
      std::memcpy(row + 4 * k, &f, 4);
    }
  }
}

// Keeps B, G, R only inside a box (k picks its place, or no box) and on one pixel in 61; the
// rest is black with its alpha. Sizes k % 3 == 0 stay as drawn.
void Darken(Image& img, size_t k) {
  if (img.format != PIXEL_BGRA32 || k % 3 == 0) return;
  const int32_t x0 = int32_t(k * 7) % (img.width + 3) - 2, y0 = int32_t(k * 5) % (img.height + 3) - 2;
  const int32_t bw = k % 2 ? int32_t(k % 11) : 0, bh = 1 + int32_t(k % 4);
  for (int32_t y = 0; y < img.height; ++y)
    for (int32_t x = 0; x < img.width; ++x) {
      const bool lit = (x >= x0 && x < x0 + bw && y >= y0 && y < y0 + bh) ||
                       (x * 31 + y * 17 + int32_t(k)) % 61 == 0;
      if (!lit) std::memset(img.Pixel(x, y), 0, 3);
    }
}

// Makes img w x h of `format` with `extra` bytes after each row, keeping its storage.
void Reshape(Image& img, int32_t w, int32_t h, uint32_t format, int32_t extra) {
  img.width = w, img.height = h, img.format = format;
  img.stride = w * int32_t(BytesPerPixel(format)) + extra;
  img.bytes.resize(size_t(img.stride) * size_t(h));
}

// Sizes along (w) and across (h) the kernel's lines, and how the area is cut into strips.
enum class Cut { kPastEdges, kBands, kInner };
struct Geometry {
  int32_t w, h;
  Cut cut;
};

std::vector<Geometry> Geometries() {
  std::vector<Geometry> g;
  const Cut cuts[3] = {Cut::kPastEdges, Cut::kBands, Cut::kInner};
  for (int32_t w = 1; w <= 40; ++w) g.push_back({w, 1 + (w * 5) % 7, cuts[w % 3]});
  for (int32_t w : {45, 63, 67, 97, 131}) g.push_back({w, 2 + w % 5, cuts[w % 3]});
  g.push_back({1921, 3, Cut::kPastEdges});
  g.push_back({1921, 2, Cut::kInner});
  if (kFullFrames) g.push_back({1921, 1081, Cut::kBands});
  return g;
}

// A resampling source for a w x h destination: double, half, equal, odd ratios (half for a
// full frame).
void SourceSize(size_t k, int32_t w, int32_t h, int32_t* sw, int32_t* sh) {
  const int32_t pick = w > 1000 && h > 1000 ? 1 : int32_t(k % 5);
  const int32_t sizes[5][2] = {{2 * w, 2 * h}, {(w + 1) / 2, (h + 1) / 2}, {w, h},
                               {w * 3 / 2 + 1, h + 2}, {1 + (w * 7) % 67, 1 + (h * 5) % 13}};
  *sw = sizes[pick][0], *sh = sizes[pick][1];
}

ProcessRect Rect(int32_t l, int32_t t, int32_t r, int32_t b) {
  return ProcessRect{uint32_t(l), uint32_t(t), uint32_t(r), uint32_t(b)};
}

// The strips of one call sequence, in stage coordinates of an area at (ox, oy) sized w x h.
std::vector<ProcessRect> Strips(Cut cut, bool columns, int32_t ox, int32_t oy, int32_t w,
                                int32_t h) {
  std::vector<ProcessRect> s;
  switch (cut) {
    case Cut::kPastEdges: s.push_back(Rect(0, 0, ox + w + 9, oy + h + 9)); break;
    case Cut::kInner:
      s.push_back(Rect(ox + w / 3, oy + h / 3, ox + w - w / 4, oy + h - h / 4));
      break;
    case Cut::kBands: {
      const int32_t extent = columns ? w : h;
      for (int32_t at = 0, k = 0; at < extent; ++k) {
        const int32_t n = std::min(extent - at, extent > 200 ? extent / 4 + 1 : k % 9 + 1);
        s.push_back(columns ? Rect(ox + at, oy, ox + at + n, oy + h)
                            : Rect(ox, oy + at, ox + w, oy + at + n));
        at += n;
      }
      break;
    }
  }
  return s;
}

// "" when equal, else where the first difference lies.
std::string FirstDifference(const std::vector<Image>& a, const std::vector<Image>& b) {
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i].bytes == b[i].bytes) continue;
    const auto at = std::mismatch(a[i].bytes.begin(), a[i].bytes.end(), b[i].bytes.begin());
    const size_t off = size_t(at.first - a[i].bytes.begin());
    const size_t bpp = BytesPerPixel(a[i].format);
    std::ostringstream m;
    m << "image " << i << " pixel (" << (off % size_t(a[i].stride)) / bpp << ", "
      << off / size_t(a[i].stride) << ") byte " << (off % size_t(a[i].stride)) % bpp << ": "
      << int(*at.first) << " against " << int(*at.second);
    return m.str();
  }
  return "";
}

}  // namespace

Draws::Draws(uint32_t seed) : state_(seed ? seed : 1u) {}

int32_t Draws::Int(int32_t lo, int32_t hi) {
  state_ ^= state_ << 13;
  state_ ^= state_ >> 17;
  state_ ^= state_ << 5;
  return int32_t(int64_t(lo) + int64_t(state_ % (uint64_t(int64_t(hi) - lo) + 1)));
}

float Draws::Float(float lo, float hi) {
  return lo + (hi - lo) * float(Int(0, (1 << 24) - 1)) / float(1 << 24);
}

int32_t Draws::Pick(std::initializer_list<int32_t> values) {
  return values.begin()[Int(0, int32_t(values.size()) - 1)];
}

Case::Case(std::vector<Image>* images, int32_t origin_x, int32_t origin_y, bool fast,
           uint32_t seed)
    : Draws(seed), images_(images), origin_x_(origin_x), origin_y_(origin_y), fast_(fast) {}

ImageView Case::View(size_t i) const { return (*images_)[i].View(origin_x_, origin_y_); }

ProcessRect Case::Area(size_t i) const {
  const Image& img = (*images_)[i];
  return Rect(origin_x_, origin_y_, origin_x_ + img.width, origin_y_ + img.height);
}

KernelRow::KernelRow(std::string n, std::vector<std::vector<uint32_t>> f, Run r)
    : name(std::move(n)), formats(std::move(f)), run(std::move(r)) {}
KernelRow& KernelRow::Columns() { return columns = true, *this; }
KernelRow& KernelRow::SourceSizedApart() { return source_sized_apart = true, *this; }
KernelRow& KernelRow::AnyFloatBits() { return any_float_bits = true, *this; }
KernelRow& KernelRow::DarkImages() { return dark_images = true, *this; }

void ExpectFormsAgree(const std::vector<KernelRow>& rows) {
  if (!HasSse41()) GTEST_SKIP() << "no SSE4.1: the fast forms cannot run here";
  const std::vector<Geometry> geometries = Geometries();
  // Kept from case to case: the large frames fault their pages in once, not once per row.
  std::vector<Image> base, plain, fast, whole;
  for (const KernelRow& row : rows) {
    // Every combination of the images' formats.
    size_t combos = 1;
    for (const auto& f : row.formats) combos *= f.size();
    int64_t successes = 0;
    for (size_t combo = 0; combo < combos; ++combo) {
      std::vector<uint32_t> formats;
      for (size_t i = 0, rest = combo; i < row.formats.size(); rest /= row.formats[i].size(), ++i)
        formats.push_back(row.formats[i][rest % row.formats[i].size()]);
      for (size_t k = 0; k < geometries.size(); ++k) {
        const Geometry& g = geometries[k];
        const int32_t w = row.columns ? g.h : g.w, h = row.columns ? g.w : g.h;
        const int32_t ox = int32_t(k % 5), oy = int32_t(k % 3);
        const uint32_t seed = Mix(Mix(HashName(row.name), uint32_t(k)), uint32_t(combo));
        base.resize(formats.size());
        for (size_t i = 0; i < formats.size(); ++i) {
          int32_t iw = w, ih = h;
          if (i == 0 && row.source_sized_apart) SourceSize(k, w, h, &iw, &ih);
          const int32_t unit = IsFloat(formats[i]) || formats[i] == PIXEL_GRAY32_ALT ? 4 : 1;
          Reshape(base[i], iw, ih, formats[i], unit * int32_t((k * 7 + i * 3) % 5));
          base[i].FillRandom(Mix(seed, uint32_t(i)));
          if (IsFloat(formats[i])) FillFloats(base[i], row.any_float_bits);
          if (row.dark_images) Darken(base[i], k);
        }
        plain = base, fast = base;
        std::ostringstream where;
        where << row.name << " formats";
        for (uint32_t f : formats) where << " " << f;
        const char* cuts[] = {"one strip past the edges", "bands", "an inner strip"};
        where << ", " << w << "x" << h << " at (" << ox << ", " << oy << "), "
              << cuts[int(g.cut)] << ", seed " << seed;
        const std::vector<ProcessRect> strips = Strips(g.cut, row.columns, ox, oy, w, h);
        for (const ProcessRect& s : strips) {
          Case p(&plain, ox, oy, false, seed), f(&fast, ox, oy, true, seed);
          p.strip = f.strip = s;
          const int32_t rc_plain = row.run(p), rc_fast = row.run(f);
          ASSERT_EQ(rc_plain, rc_fast) << where.str() << ", strip from " << s.left << ","
                                       << s.top;
          successes += rc_plain == 0;
        }
        const std::string diff = FirstDifference(plain, fast);
        ASSERT_TRUE(diff.empty()) << where.str() << ": the forms differ at " << diff;
        if (g.cut == Cut::kBands) {
          whole = base;
          Case c(&whole, ox, oy, false, seed);
          c.strip = Rect(ox, oy, ox + w, oy + h);
          row.run(c);
          const std::string bands = FirstDifference(whole, plain);
          ASSERT_TRUE(bands.empty()) << where.str() << ": bands differ from one call at " << bands;
        }
      }
    }
    EXPECT_GT(successes, 0) << row.name << ": no call succeeded, nothing was compared";
  }
}

void ExpectEffectRunsAgree(const std::vector<EffectRow>& rows) {
  const int32_t sizes[][2] = {{5, 7}, {2, 2}, {33, 17}, {64, 3}, {203, 117}, {1921, 1081}};
  const size_t frames = sizeof(sizes) / sizeof(sizes[0]) - (kFullFrames ? 0 : 1);
  const struct {
    int32_t level, workers;
  } configs[] = {{SIMD_SSE3, 1}, {SIMD_SSE3, 8}, {SIMD_SSE41, 3}, {SIMD_SSE42, 8}};
  for (const EffectRow& row : rows) {
    for (size_t k = 0; k < frames; ++k) {
      const int32_t w = sizes[k][0], h = sizes[k][1];
      const uint32_t seed = Mix(HashName(row.name), uint32_t(k));
      Image src(w, h, PIXEL_BGRA32, int32_t(k % 3) * 4 + 1), mask(w, h, PIXEL_GRAY8, int32_t(k));
      src.FillRandom(seed);
      mask.FillRandom(seed + 1);
      for (int32_t y = h / 4; y < h / 2; ++y)  // a bright block: every highlight stage has work
        for (int32_t x = w / 3; x < w / 2 + 1; ++x) std::memset(src.Pixel(x, y), 250, 3);
      const ProcessRect rect = k % 2 ? Rect(w / 7, h / 5, w - w / 9, h - h / 6) : Rect(0, 0, w, h);
      Image stale(int32_t(rect.right - rect.left), int32_t(rect.bottom - rect.top), PIXEL_BGRA32,
                  int32_t(k) * 4);
      stale.FillRandom(seed + 2);
      std::vector<Image> reference;
      int32_t reference_rc = 0;
      for (const auto& config : configs) {
        if (config.level >= SIMD_SSE41 && !HasSse41()) continue;
        CThreadPool pool;
        pool.Create(config.workers);
        std::vector<Image> dst{stale};
        Frame f(seed);
        f.width = w, f.height = h;
        f.src = src.Desc();
        if (k % 3 == 1) f.mask = mask.Desc();
        f.dst = dst[0].Desc();
        f.rect = rect;
        const int32_t rc = row.run(&pool, CpuInfo{config.workers, config.level, 0}, f);
        std::ostringstream where;
        where << row.name << ", frame " << w << "x" << h << (f.mask.data ? " with a mask" : "")
              << ", rect " << rect.left << "," << rect.top << "," << rect.right << ","
              << rect.bottom << ", seed " << seed << ": level " << config.level << " with "
              << config.workers << " workers";
        if (reference.empty()) {
          EXPECT_EQ(rc, 0) << where.str() << " fails: draw parameters within their ranges";
          reference = dst;
          reference_rc = rc;
          continue;
        }
        ASSERT_EQ(rc, reference_rc) << where.str() << " returns another code";
        const std::string diff = FirstDifference(reference, dst);
        ASSERT_TRUE(diff.empty()) << where.str() << " gives other bytes at " << diff;
      }
    }
  }
}

}  // namespace test
}  // namespace Vantyx
