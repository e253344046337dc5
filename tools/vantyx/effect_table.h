// The effects the tool knows, as data: one entry per family names its type code, its two
// records and every option that fills a field of them. Parsing, help, validation and record
// building all read this table, so a new family is one entry in effect_table.cpp.
#ifndef VANTYX_TOOL_EFFECT_TABLE_H
#define VANTYX_TOOL_EFFECT_TABLE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VantyxTool {

enum class FieldType { kF32, kU32, kI32, kU8 };

// What a rule that depends on the picture sees: the frame size and the values of the options
// that come earlier in the table (defaults already filled in).
struct EffectSpec;
struct FrameContext {
  int32_t width;
  int32_t height;
  const EffectSpec* effect;
  const std::vector<double>* values;  // by option index
};

// The value of another option of the same effect (for rules that depend on it).
double OptionValue(const FrameContext& frame, const char* name);

struct OptionSpec {
  const char* name;  // long option without the dashes
  const char* help;
  FieldType type;
  double min;
  double max;            // inclusive; +infinity when the record sets no upper bound
  double default_value;  // used when derive_default is null
  // A maximum that depends on the picture (null: `max` holds); max_text describes it.
  double (*frame_max)(const FrameContext& frame);
  const char* max_text;
  // A default that depends on the picture or on other options (null: default_value holds).
  double (*derive_default)(const FrameContext& frame);
  const char* default_text;
  const char* const* choices;  // names for the values 0, 1, ... ("" for none; null-terminated)
  int32_t basic_offset;        // byte offset in the basic record, -1 when absent
  int32_t full_offset;         // byte offset in the full record, -1 when absent
};

// A record field the tool does not expose but must fill (reserved fields with a carried value).
struct FixedField {
  FieldType type;
  double value;
  int32_t basic_offset;
  int32_t full_offset;
};

struct EffectSpec {
  const char* name;  // as typed on the command line
  const char* title;
  const char* summary;
  uint32_t type;  // the engine's EffectType
  size_t basic_size;
  size_t full_size;
  size_t basic_rect_offset;
  size_t full_rect_offset;
  const OptionSpec* options;
  size_t option_count;
  const FixedField* fixed;
  size_t fixed_count;
  // The family's interface calls. `effect` is what CreateEffect handed back; a record is the
  // bytes of the family's basic or full parameter record.
  int32_t (*set_image_size)(void* effect, int32_t width, int32_t height);
  int32_t (*process)(void* effect, const uint8_t* record);
  int32_t (*process_full)(void* effect, const uint8_t* record);
};

const std::vector<EffectSpec>& Effects();
const EffectSpec* FindEffect(const std::string& name);
int32_t FindOption(const EffectSpec& effect, const std::string& name);  // index or -1
// The value a choice name stands for, or -1 (also for an option without names).
int32_t FindChoice(const OptionSpec& option, const std::string& name);

// The option's upper bound for a frame, and the full list of values once defaults are filled in.
double OptionMax(const OptionSpec& option, const FrameContext& frame);
std::vector<double> ResolveValues(const EffectSpec& effect, const std::vector<bool>& given,
                                  const std::vector<double>& values, int32_t width,
                                  int32_t height);
// The full call as soon as any option that only the full record has is given; every host
// around the library chooses the call this way.
bool NeedsFullCall(const EffectSpec& effect, const std::vector<bool>& given);

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_EFFECT_TABLE_H
