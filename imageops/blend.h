// The 38 blend kernels: a layer composited over a base into a destination with an opacity.
// The three images are addressed with the same (stage) coordinates; layer pixels outside the
// layer image count as transparent, and nothing outside any image is touched.
#pragma once

#include <cstdint>

#include "core/image_view.h"

namespace Vantyx {

constexpr int32_t kBlendKernelCount = 38;
constexpr int32_t kBlendModeCount = 29;

using BlendKernel = int32_t (*)(const ImageView& base, const ImageView& layer,
                                const ImageView& dst, uint32_t opacity, const ProcessRect& strip);

extern const BlendKernel kBlendKernelsPlain[kBlendKernelCount];
extern const BlendKernel kBlendKernelsSse41[kBlendKernelCount];

// Blend-mode code -> kernel index.
extern const int32_t kBlendModeToIndex[kBlendModeCount];
// The kernel index of a mode code, or -1 when the code is not in 0..28.
int32_t BlendIndexForMode(int32_t mode);

// The block job: index 0..37 (else 0x80070057), plain below level 5, fast from 5.
int32_t blend_block(int32_t index, const ImageView& base, const ImageView& layer,
                    const ImageView& dst, uint32_t opacity, const ProcessRect& strip,
                    int32_t simd_level);

}  // namespace Vantyx
