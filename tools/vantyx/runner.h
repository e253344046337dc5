// One engine and one effect instance, driven through the public header like any host.
#ifndef VANTYX_TOOL_RUNNER_H
#define VANTYX_TOOL_RUNNER_H

#include <cstdint>
#include <string>
#include <vector>

#include "effect_table.h"

namespace Vantyx {
class VantyxEngine;
}

namespace VantyxTool {

// "invalid argument" and the like; DescribeResult puts the code in front.
const char* ResultMeaning(int32_t code);
// "0x80070057 invalid argument" and the like, for messages.
std::string DescribeResult(int32_t code);

// A rectangle of the frame; right and bottom exclusive.
struct Rect {
  uint32_t left = 0;
  uint32_t top = 0;
  uint32_t right = 0;
  uint32_t bottom = 0;
  uint32_t Width() const { return right - left; }
  uint32_t Height() const { return bottom - top; }
};

// What one frame is rendered with: option values (all resolved), the call to use and the area.
struct FrameSettings {
  std::vector<double> values;
  bool full_call = false;
  Rect rect;
};

// Bytes of the basic or full record with every option and fixed field written at its offset;
// the three image views and the rectangle are left for BuildFrameRecord.
std::vector<uint8_t> BuildParamRecord(const EffectSpec& effect, const FrameSettings& settings);

// A frame's images in caller memory, rows `stride` bytes apart: src and mask (null for none)
// at the frame size, dst at the rectangle's size.
struct FrameImages {
  const uint8_t* src = nullptr;
  uint32_t src_stride = 0;
  const uint8_t* mask = nullptr;
  uint32_t mask_stride = 0;
  uint8_t* dst = nullptr;
  uint32_t dst_stride = 0;
};

// One basic or full call on an effect whose size is already set to width x height, into dst as
// it stands. `record` is scratch for the parameter record. Returns the effect's result code.
int32_t RenderFrame(const EffectSpec& effect, void* instance, int32_t width, int32_t height,
                    const FrameSettings& settings, const FrameImages& images,
                    std::vector<uint8_t>* record);

class EffectRunner {
 public:
  EffectRunner() = default;
  ~EffectRunner();
  EffectRunner(const EffectRunner&) = delete;
  EffectRunner& operator=(const EffectRunner&) = delete;

  // Creates the engine and the effect. False with a message when either fails.
  bool Open(const EffectSpec& effect, std::string* error);
  bool SetImageSize(int32_t width, int32_t height, std::string* error);
  // src: width x height BGRA; mask: width x height bytes or null; dst: the rectangle's size.
  // dst first receives the source's rectangle, as a host that renders in place has it: pixels
  // an effect leaves alone (where its layer is transparent) keep the picture.
  bool Render(const FrameSettings& settings, const uint8_t* src, const uint8_t* mask,
              uint8_t* dst, std::string* error);
  void Close();

 private:
  const EffectSpec* m_effect = nullptr;
  Vantyx::VantyxEngine* m_engine = nullptr;
  void* m_instance = nullptr;
  int32_t m_width = 0;
  int32_t m_height = 0;
  std::vector<uint8_t> m_record;
};

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_RUNNER_H
