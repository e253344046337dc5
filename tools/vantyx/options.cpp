#include "options.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace VantyxTool {

namespace {

std::string Number(double value) {
  char text[48];
  std::snprintf(text, sizeof(text), "%g", value);
  return text;
}

bool IsInteger(FieldType type) { return type != FieldType::kF32; }

bool ParseDouble(const std::string& text, double* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(v)) return false;
  *value = v;
  return true;
}

bool ParseInteger(const std::string& text, long long* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE) return false;
  *value = v;
  return true;
}

std::string OptionError(const std::string& name, const std::string& text,
                        const std::string& what) {
  return "option --" + name + ": value '" + text + "' " + what;
}

bool ParseOptionValue(const OptionSpec& option, const std::string& text, double* value,
                      std::string* error) {
  const int32_t choice = FindChoice(option, text);
  if (choice >= 0) {
    *value = choice;
    return true;
  }
  if (IsInteger(option.type)) {
    long long v = 0;
    if (!ParseInteger(text, &v)) {
      *error = OptionError(option.name, text,
                           std::string(option.choices ? "is not a known name or number"
                                                      : "is not a whole number") +
                               " (allowed: " + RangeText(option) + ")");
      return false;
    }
    *value = double(v);
  } else if (!ParseDouble(text, value)) {
    *error = OptionError(option.name, text, "is not a number (allowed: " + RangeText(option) + ")");
    return false;
  }
  const std::string problem = RangeProblem(option, *value);
  if (!problem.empty()) {
    *error = OptionError(option.name, text, problem);
    return false;
  }
  return true;
}

bool ParseUnsigned(const std::string& text, uint32_t limit, uint32_t* value) {
  if (text.empty() || text.size() > 10) return false;
  uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + uint64_t(c - '0');
  }
  if (v > limit) return false;
  *value = uint32_t(v);
  return true;
}

bool SplitList(const std::string& text, char separator, std::vector<std::string>* parts) {
  parts->clear();
  size_t start = 0;
  for (;;) {
    const size_t at = text.find(separator, start);
    parts->push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
    if (at == std::string::npos) break;
    start = at + 1;
  }
  return true;
}

bool ParseSize(const std::string& text, int32_t* width, int32_t* height, std::string* error) {
  std::vector<std::string> parts;
  SplitList(text, 'x', &parts);
  uint32_t w = 0, h = 0;
  if (parts.size() != 2 || !ParseUnsigned(parts[0], 65535, &w) ||
      !ParseUnsigned(parts[1], 65535, &h) || w == 0 || h == 0) {
    *error = "option --raw: value '" + text +
             "' is not a frame size (allowed: WxH, each 1..65535, e.g. 1920x1080)";
    return false;
  }
  *width = int32_t(w);
  *height = int32_t(h);
  return true;
}

bool ParseRect(const std::string& text, Rect* rect, std::string* error) {
  std::vector<std::string> parts;
  SplitList(text, ',', &parts);
  uint32_t v[4] = {};
  bool ok = parts.size() == 4;
  for (size_t i = 0; ok && i < 4; ++i) ok = ParseUnsigned(parts[i], 65535, &v[i]);
  if (!ok || v[0] >= v[2] || v[1] >= v[3]) {
    *error = "option --rect: value '" + text +
             "' is not a rectangle (allowed: L,T,R,B with L < R and T < B, right and bottom "
             "exclusive)";
    return false;
  }
  *rect = Rect{v[0], v[1], v[2], v[3]};
  return true;
}

std::string Placeholder(const OptionSpec& option) {
  if (option.choices) {
    std::string names;
    for (int32_t i = 0; option.choices[i]; ++i)
      if (*option.choices[i]) names += (names.empty() ? "" : "|") + std::string(option.choices[i]);
    return names;
  }
  return IsInteger(option.type) ? "N" : "X";
}

void AppendOptionLine(const OptionSpec& option, std::string* out) {
  std::string head = "  --" + std::string(option.name) + " " + Placeholder(option);
  if (head.size() < 34) head.resize(34, ' ');
  else head += "\n" + std::string(34, ' ');
  *out += head + option.help + "\n" + std::string(34, ' ') + "[" + RangeText(option) +
          "; default " + DefaultText(option) + "]\n";
}

}  // namespace

std::string DefaultText(const OptionSpec& option) {
  if (option.default_text) return option.default_text;
  if (option.choices) return option.choices[int32_t(option.default_value)];
  return Number(option.default_value);
}

std::string RangeProblem(const OptionSpec& option, double value) {
  // A maximum that depends on the picture is checked once the picture is known.
  const bool above = option.frame_max ? false : value > option.max;
  if (value < option.min || above) return "is out of range (allowed: " + RangeText(option) + ")";
  return std::string();
}

std::string RangeText(const OptionSpec& option) {
  std::string range;
  if (option.frame_max) {
    range = Number(option.min) + ".." + option.max_text;
  } else if (std::isinf(option.max)) {
    range = Number(option.min) + " or more";
  } else {
    range = Number(option.min) + ".." + Number(option.max);
  }
  if (option.choices) {
    std::string names;
    for (int32_t i = 0; option.choices[i]; ++i) {
      if (!*option.choices[i]) continue;  // a value without a name
      names += (names.empty() ? "" : ", ") + std::string(option.choices[i]) + "=" + std::to_string(i);
    }
    range += " or " + names;
  }
  return range;
}

bool ParseApply(const std::vector<std::string>& args, ApplyRequest* request, std::string* error) {
  *request = ApplyRequest();
  size_t i = 0;
  if (i < args.size() && (args[i] == "--help" || args[i] == "-h")) {
    request->help = true;
    return true;
  }
  if (i >= args.size() || args[i].empty() || args[i][0] == '-') {
    *error = "apply needs an effect name first (see 'vantyx apply --help')";
    return false;
  }
  request->effect = FindEffect(args[i]);
  if (!request->effect) {
    std::string known;
    for (const EffectSpec& effect : Effects()) known += (known.empty() ? "" : ", ") + std::string(effect.name);
    *error = "unknown effect '" + args[i] + "' (known: " + known + ")";
    return false;
  }
  const EffectSpec& effect = *request->effect;
  request->given.assign(effect.option_count, false);
  request->values.assign(effect.option_count, 0.0);
  request->texts.assign(effect.option_count, std::string());
  ++i;

  std::vector<std::string> positional;
  bool options_done = false;
  for (; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (options_done || arg == "-" || arg.size() < 2 || arg[0] != '-') {
      positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_done = true;
      continue;
    }
    if (arg == "--help" || arg == "-h") {
      request->help = true;
      return true;
    }
    if (arg.compare(0, 2, "--") != 0) {
      *error = "unknown option '" + arg + "' (see 'vantyx apply " + effect.name + " --help')";
      return false;
    }
    std::string name = arg.substr(2);
    std::string value;
    bool has_value = false;
    const size_t eq = name.find('=');
    if (eq != std::string::npos) {
      value = name.substr(eq + 1);
      name.resize(eq);
      has_value = true;
    }
    const int32_t index = FindOption(effect, name);
    const bool known = index >= 0 || name == "mask" || name == "rect" || name == "raw" ||
                       name == "jpeg-quality";
    if (!known) {
      *error = "unknown option '--" + name + "' for " + effect.name + " (see 'vantyx apply " +
               effect.name + " --help')";
      return false;
    }
    if (!has_value) {
      if (i + 1 >= args.size()) {
        *error = "option --" + name + " needs a value";
        return false;
      }
      value = args[++i];
    }
    if (index >= 0) {
      const OptionSpec& option = effect.options[index];
      double v = 0.0;
      if (!ParseOptionValue(option, value, &v, error)) return false;
      request->given[size_t(index)] = true;
      request->values[size_t(index)] = v;
      request->texts[size_t(index)] = value;
    } else if (name == "mask") {
      if (value.empty()) {
        *error = "option --mask: needs a file name";
        return false;
      }
      request->mask_path = value;
    } else if (name == "rect") {
      if (!ParseRect(value, &request->rect, error)) return false;
      request->has_rect = true;
    } else if (name == "raw") {
      if (!ParseSize(value, &request->raw_width, &request->raw_height, error)) return false;
      request->raw = true;
    } else {  // jpeg-quality
      uint32_t q = 0;
      if (!ParseUnsigned(value, 100, &q) || q < 1) {
        *error = "option --jpeg-quality: value '" + value + "' is out of range (allowed: 1..100)";
        return false;
      }
      request->jpeg_quality = int32_t(q);
    }
  }

  request->full_call = NeedsFullCall(effect, request->given);
  if (positional.size() != 2) {
    *error = "apply " + std::string(effect.name) + " needs an input and an output (got " +
             std::to_string(positional.size()) + " file names)";
    return false;
  }
  request->input = positional[0];
  request->output = positional[1];
  if (!request->raw && (request->input == "-" || request->output == "-")) {
    *error = "'-' (standard input or output) is for raw frames: add --raw WxH";
    return false;
  }
  if (request->raw && (request->output == request->input) && request->input != "-") {
    *error = "the raw output would overwrite its own input '" + request->input + "'";
    return false;
  }
  return true;
}

bool CheckForFrame(const ApplyRequest& request, int32_t width, int32_t height,
                   FrameSettings* settings, FrameProblem* problem) {
  const EffectSpec& effect = *request.effect;
  settings->values = ResolveValues(effect, request.given, request.values, width, height);
  settings->full_call = request.full_call;
  const FrameContext frame{width, height, &effect, &settings->values};
  const std::string size = std::to_string(width) + "x" + std::to_string(height);
  for (size_t i = 0; i < effect.option_count; ++i) {
    const OptionSpec& option = effect.options[i];
    if (!request.given[i] || !option.frame_max) continue;
    const double max = OptionMax(option, frame);
    // Compared as the record's float, the way the effect compares it.
    const double value = option.type == FieldType::kF32 ? double(float(request.values[i]))
                                                        : request.values[i];
    if (value > max) {
      problem->option = int32_t(i);
      problem->what = "is out of range (allowed: " + Number(option.min) + ".." + Number(max) +
                      ", that is " + option.max_text + " for a " + size + " picture)";
      return false;
    }
  }
  if (request.has_rect) {
    if (request.rect.right > uint32_t(width) || request.rect.bottom > uint32_t(height)) {
      problem->option = -1;
      problem->what = "does not fit the " + size + " picture (allowed: right <= " +
                      std::to_string(width) + ", bottom <= " + std::to_string(height) + ")";
      return false;
    }
    settings->rect = request.rect;
  } else {
    settings->rect = Rect{0, 0, uint32_t(width), uint32_t(height)};
  }
  return true;
}

bool SettingsForFrame(const ApplyRequest& request, int32_t width, int32_t height,
                      FrameSettings* settings, std::string* error) {
  FrameProblem problem;
  if (CheckForFrame(request, width, height, settings, &problem)) return true;
  if (problem.option >= 0) {
    *error = OptionError(request.effect->options[problem.option].name,
                         request.texts[size_t(problem.option)], problem.what);
  } else {
    char text[96];
    std::snprintf(text, sizeof(text), "%u,%u,%u,%u", request.rect.left, request.rect.top,
                  request.rect.right, request.rect.bottom);
    *error = OptionError("rect", text, problem.what);
  }
  return false;
}

std::string ApplyHelp(const EffectSpec* effect) {
  std::string out;
  if (!effect) {
    out += "usage: vantyx apply EFFECT [options] IN OUT\n"
           "       vantyx apply EFFECT [options] --raw WxH IN OUT\n"
           "       vantyx apply EFFECT --help\n\n"
           "Effects:\n";
    for (const EffectSpec& e : Effects()) {
      std::string name = "  " + std::string(e.name);
      name.resize(14, ' ');
      out += name + e.summary + "\n";
    }
    return out;
  }
  const std::string name = effect->name;
  out += "usage: vantyx apply " + name + " [options] IN.(png|jpg) OUT.(png|jpg)\n" +
         "       vantyx apply " + name + " [options] --raw WxH IN OUT\n\n" + effect->title + ": " +
         effect->summary + ".\n\n" +
         "Effect options (basic call):\n";
  for (size_t i = 0; i < effect->option_count; ++i) {
    if (effect->options[i].basic_offset >= 0) AppendOptionLine(effect->options[i], &out);
  }
  out += "\nFull-call options (giving any of them selects the full call):\n";
  for (size_t i = 0; i < effect->option_count; ++i) {
    if (effect->options[i].basic_offset < 0) AppendOptionLine(effect->options[i], &out);
  }
  out += "\nFrame options:\n"
         "  --mask FILE                     grey PNG or JPEG at the picture's size: how much of\n"
         "                                  the effect each pixel gets (a colour file counts\n"
         "                                  by its luma)\n"
         "  --rect L,T,R,B                  render only this part (right and bottom exclusive);\n"
         "                                  the output is the rectangle's size\n"
         "  --raw WxH                       IN and OUT are streams of raw BGRA frames of this\n"
         "                                  size ('-' for standard input and output)\n"
         "  --jpeg-quality N                quality of a JPEG output [1..100; default " +
         std::to_string(kDefaultJpegQuality) + "]\n\n"
         "w and h are the picture's width and height. Options take '--name value' or\n"
         "'--name=value'.\n";
  return out;
}

}  // namespace VantyxTool
