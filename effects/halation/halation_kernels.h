// The per-pixel stages only Halation uses. All images are BGRA32 (else 0x80070057; a null
// image or table 0x80004003) and addressed with the same coordinates; each kernel works on the
// strip cut to its images. L is the luma (19660 R + 38665 G + 7209 B) >> 16 of a pixel. The
// keyer, the midtone, the compare and the fade have SSE4.1 forms (chosen from level 5); the
// two byte-table passes are plain at every level, a table being one load per byte.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {
namespace halation {

int32_t Luma(int32_t b, int32_t g, int32_t r);

// "luma keyer": with T = threshold and g = gain, a pixel with L >= T keeps B and G and takes
// R = trunc(min(255, (R - T) g + T)) in float, as its low byte (saturated to int32 first);
// below T every colour byte is trunc(c (1 - (T - L) / 15)), 0 below 1. Alpha copied.
int32_t key_luma(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                 const ProcessRect& strip, int32_t simd_level);
int32_t key_luma_plain(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                       const ProcessRect& strip);
int32_t key_luma_sse41(const ImageView& src, const ImageView& dst, int32_t threshold, float gain,
                       const ProcessRect& strip);

// "midtone extraction": a pixel with L < T fades by f = 1 - (T - L) / D, D = 220 - T but at
// least 20 (trunc(c f), 0 below 1); others are copied. Alpha copied.
int32_t extract_midtone(const ImageView& src, const ImageView& dst, int32_t threshold,
                        const ProcessRect& strip, int32_t simd_level);
int32_t extract_midtone_plain(const ImageView& src, const ImageView& dst, int32_t threshold,
                              const ProcessRect& strip);
int32_t extract_midtone_sse41(const ImageView& src, const ImageView& dst, int32_t threshold,
                              const ProcessRect& strip);

// "apply tone-mapping", in place: G through curve_b, R through curve_a.
int32_t tone_map_highlight_plain(const ImageView& img, const uint8_t* curve_a,
                                 const uint8_t* curve_b, const ProcessRect& strip);

// "apply tone-mapping on midtone", in place: B = 0, R through curve_c.
int32_t tone_map_midtone_plain(const ImageView& img, const uint8_t* curve_c,
                               const ProcessRect& strip);

// "compare two masks": dst = (highlight B, max of the two G, max of the two R, 255).
int32_t compare_masks(const ImageView& highlight, const ImageView& midtone, const ImageView& dst,
                      const ProcessRect& strip, int32_t simd_level);
int32_t compare_masks_plain(const ImageView& highlight, const ImageView& midtone,
                            const ImageView& dst, const ProcessRect& strip);
int32_t compare_masks_sse41(const ImageView& highlight, const ImageView& midtone,
                            const ImageView& dst, const ProcessRect& strip);

// "deicde which pixels to show": dst takes B, G, R of `colour` and alpha trunc(A w), with L
// from `src` and T = threshold: w = 0 when T = 0, 1 when L <= T, else max(0, T - L + 100) / 100.
int32_t decide_visible(const ImageView& src, const ImageView& colour, const ImageView& dst,
                       int32_t threshold, const ProcessRect& strip, int32_t simd_level);
int32_t decide_visible_plain(const ImageView& src, const ImageView& colour, const ImageView& dst,
                             int32_t threshold, const ProcessRect& strip);
int32_t decide_visible_sse41(const ImageView& src, const ImageView& colour, const ImageView& dst,
                             int32_t threshold, const ProcessRect& strip);

}  // namespace halation
}  // namespace Vantyx
