// Moving pixels between caller images and working buffers: a plain copy, 8-bit BGRA to three
// floats and back. Each works on one strip; checks run null pointer, format, empty strip.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {

// Copies every byte of the strip's pixels (alpha included) at the same coordinates.
// 0x80070057 when the two pixel steps differ.
int32_t copy_block(const ImageView& src, const ImageView& dst, const ProcessRect& strip);

// dst channel i = src byte i x scale + offset for B, G, R; alpha dropped.
// Needs PIXEL_BGRA32 -> PIXEL_FLOAT96, else 0x80070057.
int32_t convert_u8_to_f32(const ImageView& src, const ImageView& dst, float scale, float offset,
                          const ProcessRect& strip, int32_t simd_level);
int32_t convert_u8_to_f32_plain(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip);
int32_t convert_u8_to_f32_sse41(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip);

// v = trunc(scale x f + offset), 255 from 256 up, 0 below 1; dst alpha untouched.
// Needs PIXEL_FLOAT96 -> PIXEL_BGRA32, else 0x80070057.
int32_t convert_f32_to_u8(const ImageView& src, const ImageView& dst, float scale, float offset,
                          const ProcessRect& strip, int32_t simd_level);
int32_t convert_f32_to_u8_plain(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip);
int32_t convert_f32_to_u8_sse41(const ImageView& src, const ImageView& dst, float scale,
                                float offset, const ProcessRect& strip);

}  // namespace Vantyx
