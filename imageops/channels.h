// Moving single channels between BGRA32 images: one picture split into three (one channel
// each) and three merged back into one. Every image must be BGRA32 (format 0), else
// 0x80070057; a null image 0x80004003. The images are addressed with the same coordinates and
// the strip is cut to all of them.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {

// to_b gets src's B at byte 0, to_g its G at byte 1, to_r its R at byte 2, and each alpha
// 255; their other bytes are left as they were.
int32_t split_channels(const ImageView& src, const ImageView& to_b, const ImageView& to_g,
                       const ImageView& to_r, const ProcessRect& strip, int32_t simd_level);
int32_t split_channels_plain(const ImageView& src, const ImageView& to_b, const ImageView& to_g,
                             const ImageView& to_r, const ProcessRect& strip);
int32_t split_channels_sse41(const ImageView& src, const ImageView& to_b, const ImageView& to_g,
                             const ImageView& to_r, const ProcessRect& strip);

// dst = (B and alpha of from_b, G of from_g, R of from_r); any source may be dst itself.
int32_t merge_channels(const ImageView& from_b, const ImageView& from_g, const ImageView& from_r,
                       const ImageView& dst, const ProcessRect& strip, int32_t simd_level);
int32_t merge_channels_plain(const ImageView& from_b, const ImageView& from_g,
                             const ImageView& from_r, const ImageView& dst,
                             const ProcessRect& strip);
int32_t merge_channels_sse41(const ImageView& from_b, const ImageView& from_g,
                             const ImageView& from_r, const ImageView& dst,
                             const ProcessRect& strip);

namespace detail {
// The shared checks: 0x80004003, then 0x80070057, else 0 with *area the strip cut to all four.
int32_t ChannelsSetup(const ImageView& a, const ImageView& b, const ImageView& c,
                      const ImageView& d, const ProcessRect& strip, Area* area);
}  // namespace detail

}  // namespace Vantyx
