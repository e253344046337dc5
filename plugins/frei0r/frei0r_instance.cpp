#include "frei0r_instance.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <set>

namespace VantyxFrei0r {

void LogOnce(const std::string& line) {
  static std::mutex lock;
  static std::set<std::string> seen;
  std::lock_guard<std::mutex> guard(lock);
  if (seen.insert(line).second) std::fprintf(stderr, "%s\n", line.c_str());
}

PluginInstance::PluginInstance(const PluginDesc& desc, uint32_t width, uint32_t height)
    : m_desc(desc),
      m_effect(*desc.effect),
      m_width(width),
      m_height(height),
      m_given(m_effect.option_count, false),
      m_values(m_effect.option_count, 0.0),
      m_host(desc.params.size(), 0.0),
      m_text(desc.params.size()) {
  const std::vector<double> defaults = Settings().values;
  const VantyxTool::FrameContext frame{int32_t(width), int32_t(height), &m_effect, &defaults};
  for (size_t i = 0; i < desc.params.size(); ++i) {
    const PluginParam& param = desc.params[i];
    const double value = defaults[size_t(param.option)];
    m_host[i] = HostFromOption(param, m_effect, frame, value);
    if (param.kind == ParamKind::kChoice) m_text[i] = m_effect.options[param.option].choices[int32_t(value)];
  }

  std::string error;
  m_ready = m_runner.Open(m_effect, &error) &&
            m_runner.SetImageSize(int32_t(width), int32_t(height), &error);
  if (!m_ready) Fail(error);
}

void PluginInstance::SetParam(int32_t index, const void* param) {
  if (index < 0 || size_t(index) >= m_desc.params.size() || !param) return;
  const PluginParam& p = m_desc.params[size_t(index)];
  const VantyxTool::OptionSpec& option = m_effect.options[p.option];
  double value = 0.0;
  if (p.kind == ParamKind::kChoice) {
    const char* text = *static_cast<const char* const*>(param);
    if (!OptionFromText(p, m_effect, text, &value)) {
      LogOnce(m_desc.name + ": " + option.name + ": '" + (text ? text : "(null)") +
              "' is none of its names or numbers; kept '" + m_text[size_t(index)] + "'");
      return;
    }
    m_text[size_t(index)] = option.choices[int32_t(value)];
  } else {
    const double host = *static_cast<const double*>(param);
    const std::vector<double> current = Settings().values;
    const VantyxTool::FrameContext frame{int32_t(m_width), int32_t(m_height), &m_effect, &current};
    if (!OptionFromHost(p, m_effect, frame, host, &value)) return;
    m_host[size_t(index)] = p.kind == ParamKind::kBool ? value : std::clamp(host, 0.0, 1.0);
  }
  m_given[size_t(p.option)] = true;
  m_values[size_t(p.option)] = value;
}

void PluginInstance::GetParam(int32_t index, void* param) {
  if (index < 0 || size_t(index) >= m_desc.params.size() || !param) return;
  if (m_desc.params[size_t(index)].kind == ParamKind::kChoice)
    *static_cast<const char**>(param) = m_text[size_t(index)].c_str();
  else
    *static_cast<double*>(param) = m_host[size_t(index)];
}

VantyxTool::FrameSettings PluginInstance::Settings() const {
  VantyxTool::FrameSettings settings;
  settings.values = VantyxTool::ResolveValues(m_effect, m_given, m_values, int32_t(m_width),
                                              int32_t(m_height));
  settings.full_call = VantyxTool::NeedsFullCall(m_effect, m_given);
  settings.rect = VantyxTool::Rect{0, 0, m_width, m_height};
  return settings;
}

void PluginInstance::Fail(const std::string& error) {
  LogOnce(m_desc.name + ": " + error + " (" + std::to_string(m_width) + "x" +
          std::to_string(m_height) + " frames); they pass through unchanged");
}

void PluginInstance::Update(const uint32_t* in, uint32_t* out) {
  if (!in || !out) return;
  // Nothing may throw into a C host: memory running out for the settings or the copy below
  // leaves the frame unchanged, like any refusal.
  try {
    Render(reinterpret_cast<const uint8_t*>(in), reinterpret_cast<uint8_t*>(out));
  } catch (const std::bad_alloc&) {
    std::memmove(out, in, size_t(m_width) * m_height * 4);
    Fail("out of memory");
  }
}

void PluginInstance::Render(const uint8_t* src, uint8_t* dst) {
  const size_t bytes = size_t(m_width) * m_height * 4;
  const VantyxTool::FrameSettings settings = Settings();
  const bool refused = m_has_failed && settings.full_call == m_failed.full_call &&
                       settings.values == m_failed.values;
  if (!m_ready || refused) {
    std::memmove(dst, src, bytes);
    return;
  }
  // The library does not take a source that is also its destination: such a frame is copied.
  if (src < dst + bytes && dst < src + bytes) {
    m_scratch.assign(src, src + bytes);
    src = m_scratch.data();
  }
  std::string error;
  if (m_runner.Render(settings, src, nullptr, dst, &error)) {
    m_has_failed = false;
    return;
  }
  std::memcpy(dst, src, bytes);
  Fail(error);
  m_has_failed = true;
  m_failed = settings;
}

}  // namespace VantyxFrei0r
