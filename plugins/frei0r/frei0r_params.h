// The parameters a frei0r plugin shows for one effect, derived from the tool's effect table:
// names, explanations and the mapping between a host's values and the table's option values.
#ifndef VANTYX_FREI0R_PARAMS_H
#define VANTYX_FREI0R_PARAMS_H

#include <cstdint>
#include <string>
#include <vector>

#include "effect_table.h"

namespace VantyxFrei0r {

// How a host sets an option: a number in 0..1 spread over the option's range, a yes/no, or a
// name from the option's list (a whole number in its range is accepted too).
enum class ParamKind { kScaled, kBool, kChoice };

struct PluginParam {
  int32_t option;     // index into the effect's options
  ParamKind kind;
  double editor_max;  // the top of 0..1 for an option the table leaves unbounded
  std::string explanation;
};

struct PluginDesc {
  const VantyxTool::EffectSpec* effect = nullptr;  // null: no such effect in the table
  std::string name;   // "vantyx_blackmist", the plugin file's name
  std::string title;  // what an editor lists
  std::vector<PluginParam> params;
};

PluginDesc DescribePlugin(const std::string& effect_name);

// The option's value for a host's number (clamped to the range); false for NaN, which sets
// nothing. `frame` holds the frame size and the other options' current values.
bool OptionFromHost(const PluginParam& param, const VantyxTool::EffectSpec& effect,
                    const VantyxTool::FrameContext& frame, double host, double* value);
// The option's value for a name or a whole number (clamped); false for anything else.
bool OptionFromText(const PluginParam& param, const VantyxTool::EffectSpec& effect,
                    const char* text, double* value);
// The host's number for an option value: what f0r_get_param_value reports for a default.
double HostFromOption(const PluginParam& param, const VantyxTool::EffectSpec& effect,
                      const VantyxTool::FrameContext& frame, double value);

}  // namespace VantyxFrei0r

#endif  // VANTYX_FREI0R_PARAMS_H
