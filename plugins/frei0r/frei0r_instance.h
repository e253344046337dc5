// One frei0r instance: its own engine and effect at one frame size, the options a host has set,
// and frames rendered the way the vantyx tool renders them.
#ifndef VANTYX_FREI0R_INSTANCE_H
#define VANTYX_FREI0R_INSTANCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "frei0r_params.h"
#include "runner.h"

namespace VantyxFrei0r {

// A line on standard error, the first time this text comes up in the process: a host that
// feeds a thousand frames the engine refuses gets one line, not a thousand.
void LogOnce(const std::string& line);

class PluginInstance {
 public:
  // An engine per instance: frei0r lets hosts drive different instances from different
  // threads at once, and an engine is driven by one thread at a time.
  PluginInstance(const PluginDesc& desc, uint32_t width, uint32_t height);

  // `param` points to a double (numbers, yes/no) or to a char* (names), as frei0r passes them.
  void SetParam(int32_t index, const void* param);
  void GetParam(int32_t index, void* param);
  // Renders `in` into `out` (both width x height BGRA, rows packed); a frame the engine refuses
  // comes out as a copy of `in`.
  void Update(const uint32_t* in, uint32_t* out);

 private:
  void Render(const uint8_t* src, uint8_t* dst);
  VantyxTool::FrameSettings Settings() const;
  void Fail(const std::string& error);

  const PluginDesc& m_desc;
  const VantyxTool::EffectSpec& m_effect;
  uint32_t m_width;
  uint32_t m_height;
  VantyxTool::EffectRunner m_runner;
  bool m_ready = false;
  // Per option of the table, as the tool keeps them: given by the host, and the value.
  std::vector<bool> m_given;
  std::vector<double> m_values;
  // Per plugin parameter: what the host set, as it reads it back.
  std::vector<double> m_host;
  std::vector<std::string> m_text;
  // The settings of the last refused frame: not handed to the engine again (one log line).
  bool m_has_failed = false;
  VantyxTool::FrameSettings m_failed;
  std::vector<uint8_t> m_scratch;
};

}  // namespace VantyxFrei0r

#endif  // VANTYX_FREI0R_INSTANCE_H
