// The command line of `vantyx apply`: parsing, range checks and help, all driven by the
// effect table.
#ifndef VANTYX_TOOL_OPTIONS_H
#define VANTYX_TOOL_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

#include "effect_table.h"
#include "runner.h"

namespace VantyxTool {

constexpr int32_t kDefaultJpegQuality = 92;

struct ApplyRequest {
  const EffectSpec* effect = nullptr;
  bool help = false;
  // Per effect option: given on the command line, its value and the text as typed.
  std::vector<bool> given;
  std::vector<double> values;
  std::vector<std::string> texts;
  bool full_call = false;  // a full-only option was given
  std::string mask_path;
  bool has_rect = false;
  Rect rect;
  bool raw = false;
  int32_t raw_width = 0;
  int32_t raw_height = 0;
  int32_t jpeg_quality = kDefaultJpegQuality;
  std::string input;
  std::string output;
};

// `args` are the words after "apply". False with a one-line message that names the option, the
// value and what is allowed.
bool ParseApply(const std::vector<std::string>& args, ApplyRequest* request, std::string* error);

// What is wrong with a value, in words every host can put after its own name for the option
// ("is out of range (allowed: 0..2)"), or empty. A maximum that depends on the picture is left
// for CheckForFrame.
std::string RangeProblem(const OptionSpec& option, double value);

// The settings for a frame of this size: defaults filled in, then the checks that need the
// frame (maxima that depend on the picture, the rectangle inside the frame). On failure,
// `problem` names the option (its index, or -1 for the rectangle) and what is wrong with it.
struct FrameProblem {
  int32_t option = -1;
  std::string what;
};
bool CheckForFrame(const ApplyRequest& request, int32_t width, int32_t height,
                   FrameSettings* settings, FrameProblem* problem);
// The same with the message in the command line's words.
bool SettingsForFrame(const ApplyRequest& request, int32_t width, int32_t height,
                      FrameSettings* settings, std::string* error);

// "0..2", "0 or more", "0..max(w,h)/8", "off/on", ...
std::string RangeText(const OptionSpec& option);
// "1", "max(w,h)/32", "on", ...
std::string DefaultText(const OptionSpec& option);

// `vantyx apply --help` (effect null) or `vantyx apply EFFECT --help`.
std::string ApplyHelp(const EffectSpec* effect);

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_OPTIONS_H
