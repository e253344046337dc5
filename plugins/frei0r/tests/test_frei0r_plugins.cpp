// The plugins as a host sees them: loaded with dlopen and driven through the frei0r entry points,
// every frame compared with what the vantyx tool renders from the same settings.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

extern "C" {
#include <frei0r.h>
}

#include "options.h"
#include "runner.h"

namespace {

using Frame = std::vector<uint8_t>;

struct Plugin {
  void* handle = nullptr;
  int (*init)() = nullptr;
  void (*plugin_info)(f0r_plugin_info_t*) = nullptr;
  void (*param_info)(f0r_param_info_t*, int) = nullptr;
  f0r_instance_t (*construct)(unsigned, unsigned) = nullptr;
  void (*destruct)(f0r_instance_t) = nullptr;
  void (*set)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*) = nullptr;

  explicit Plugin(const std::string& effect) {
    const std::string path = VANTYX_FREI0R_DIR "/vantyx_" + effect + ".so";
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
      ADD_FAILURE() << dlerror();
    }
    Bind(&init, "f0r_init");
    Bind(&plugin_info, "f0r_get_plugin_info");
    Bind(&param_info, "f0r_get_param_info");
    Bind(&construct, "f0r_construct");
    Bind(&destruct, "f0r_destruct");
    Bind(&set, "f0r_set_param_value");
    Bind(&update, "f0r_update");
    if (Loaded()) {
      EXPECT_EQ(init(), 1);
    }
  }
  bool Loaded() const {
    return init && plugin_info && param_info && construct && destruct && set && update;
  }
  ~Plugin() {
    if (handle) dlclose(handle);
  }
  template <class F>
  void Bind(F* f, const char* name) {
    *f = handle ? reinterpret_cast<F>(dlsym(handle, name)) : nullptr;
    if (handle && !*f) {
      ADD_FAILURE() << name << " is not exported";
    }
  }
  int Param(const std::string& name) const {
    f0r_plugin_info_t info{};
    plugin_info(&info);
    for (int i = 0; i < info.num_params; ++i) {
      f0r_param_info_t p{};
      param_info(&p, i);
      if (name == p.name) return i;
    }
    ADD_FAILURE() << "no parameter " << name;
    return -1;
  }
};

// A host's setting: a number, or a name for a parameter of the string type.
struct Setting {
  const char* param;
  double number;
  const char* text;
};

Frame RandomFrame(uint32_t width, uint32_t height, uint32_t seed) {
  std::mt19937 rng(seed);
  Frame frame(size_t(width) * height * 4);
  for (uint8_t& b : frame) b = uint8_t(rng());
  return frame;
}

// `frames` updates of one instance; the output of the last.
Frame RunPlugin(const Plugin& plugin, uint32_t width, uint32_t height, const Frame& in,
                const std::vector<Setting>& settings, int frames = 1) {
  f0r_instance_t instance = plugin.construct(width, height);
  EXPECT_NE(instance, nullptr);
  for (const Setting& s : settings) {
    const char* text = s.text;
    double number = s.number;
    plugin.set(instance, text ? static_cast<f0r_param_t>(&text) : &number, plugin.Param(s.param));
  }
  Frame out(in.size(), 0);
  for (int i = 0; i < frames; ++i)
    plugin.update(instance, i / 25.0, reinterpret_cast<const uint32_t*>(in.data()),
                  reinterpret_cast<uint32_t*>(out.data()));
  plugin.destruct(instance);
  return out;
}

// What `vantyx apply EFFECT OPTIONS --raw WxH` renders from the frame.
Frame RunTool(const std::string& effect, std::vector<std::string> options, uint32_t width,
              uint32_t height, const Frame& in) {
  using namespace VantyxTool;
  options.insert(options.begin(), effect);
  for (const std::string& arg : {std::string("--raw"), std::to_string(width) + "x" + std::to_string(height),
                                 std::string("-"), std::string("-")})
    options.push_back(arg);
  ApplyRequest request;
  FrameSettings settings;
  EffectRunner runner;
  std::string error;
  Frame out(in.size(), 0);
  EXPECT_TRUE(ParseApply(options, &request, &error) &&
              SettingsForFrame(request, int32_t(width), int32_t(height), &settings, &error) &&
              runner.Open(*request.effect, &error) &&
              runner.SetImageSize(int32_t(width), int32_t(height), &error) &&
              runner.Render(settings, in.data(), nullptr, out.data(), &error))
      << error;
  return out;
}

// Standard error while `body` runs.
template <class Body>
std::string CaptureStderr(Body body) {
  std::fflush(stderr);
  char path[] = "/tmp/vantyx-frei0r-XXXXXX";
  const int fd = mkstemp(path);
  const int saved = dup(2);
  dup2(fd, 2);
  body();
  std::fflush(stderr);
  dup2(saved, 2);
  close(saved);
  std::string text;
  char buffer[4096];
  lseek(fd, 0, SEEK_SET);
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, size_t(n));
  close(fd);
  unlink(path);
  return text;
}

int CountLines(const std::string& text, const std::string& part) {
  std::istringstream lines(text);
  int count = 0;
  for (std::string line; std::getline(lines, line);) count += line.find(part) != std::string::npos;
  return count;
}

std::vector<std::string> Effects() {
  std::vector<std::string> effects;
  std::istringstream list(VANTYX_FREI0R_EFFECTS);
  for (std::string name; std::getline(list, name, ',');) effects.push_back(name);
  return effects;
}

class EveryPlugin : public ::testing::TestWithParam<std::string> {};

// What a host checks before it offers the plugin, and every parameter names a tool option.
TEST_P(EveryPlugin, DescribesItselfFromTheTable) {
  Plugin plugin(GetParam());
  ASSERT_TRUE(plugin.Loaded());
  f0r_plugin_info_t info{};
  plugin.plugin_info(&info);
  EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
  EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_BGRA8888);
  EXPECT_EQ(info.frei0r_version, FREI0R_MAJOR_VERSION);
  ASSERT_GT(info.num_params, 0);
  const VantyxTool::EffectSpec* effect = VantyxTool::FindEffect(GetParam());
  ASSERT_NE(effect, nullptr);
  for (int i = 0; i < info.num_params; ++i) {
    f0r_param_info_t p{};
    plugin.param_info(&p, i);
    ASSERT_NE(p.name, nullptr);
    EXPECT_GE(VantyxTool::FindOption(*effect, p.name), 0) << p.name;
    EXPECT_TRUE(p.type == F0R_PARAM_DOUBLE || p.type == F0R_PARAM_BOOL || p.type == F0R_PARAM_STRING);
    EXPECT_GT(std::strlen(p.explanation), 10u) << p.name;
  }
}

// Nothing set: the tool's defaults, also when the host renders a frame in place.
TEST_P(EveryPlugin, DefaultsRenderAsTheTool) {
  Plugin plugin(GetParam());
  ASSERT_TRUE(plugin.Loaded());
  const uint32_t w = 61, h = 35;
  const Frame in = RandomFrame(w, h, 1);
  const Frame expected = RunTool(GetParam(), {}, w, h, in);
  EXPECT_EQ(RunPlugin(plugin, w, h, in, {}), expected);

  f0r_instance_t instance = plugin.construct(w, h);
  Frame frame = in;
  plugin.update(instance, 0.0, reinterpret_cast<const uint32_t*>(frame.data()),
                reinterpret_cast<uint32_t*>(frame.data()));
  plugin.destruct(instance);
  EXPECT_EQ(frame, expected);
}

// Instances of different sizes and settings, driven at once from two threads as frei0r allows,
// render what each renders alone.
TEST_P(EveryPlugin, InstancesShareNothing) {
  Plugin plugin(GetParam());
  ASSERT_TRUE(plugin.Loaded());
  f0r_param_info_t first{};
  plugin.param_info(&first, 0);
  const Setting setting{first.name, 0.9, nullptr};
  const Frame in_a = RandomFrame(61, 35, 2), in_b = RandomFrame(40, 64, 3);
  const Frame alone_a = RunPlugin(plugin, 61, 35, in_a, {setting});
  const Frame alone_b = RunPlugin(plugin, 40, 64, in_b, {});
  Frame a, b;
  std::thread thread_a([&] { a = RunPlugin(plugin, 61, 35, in_a, {setting}, 4); });
  std::thread thread_b([&] { b = RunPlugin(plugin, 40, 64, in_b, {}, 4); });
  thread_a.join();
  thread_b.join();
  EXPECT_EQ(a, alone_a);
  EXPECT_EQ(b, alone_b);
}

INSTANTIATE_TEST_SUITE_P(Frei0r, EveryPlugin, ::testing::ValuesIn(Effects()));

// One host setting each: the plugin's frame equals the tool's with the option it maps to. Out of
// range clamps; NaN and unknown names set nothing. A 61x35 frame: radius 1.0 is 7 pixels.
TEST(Frei0rBlackMist, HostValuesMapToToolOptions) {
  Plugin plugin("blackmist");
  ASSERT_TRUE(plugin.Loaded());
  const double nan = std::nan("");
  struct Case {
    Setting setting;
    std::vector<std::string> tool;
  };
  const Case cases[] = {
      {{"intensity", 0.7, nullptr}, {"--intensity", "1.4"}},
      {{"intensity", 7.0, nullptr}, {"--intensity", "2"}},
      {{"intensity", -1.0, nullptr}, {"--intensity", "0"}},
      {{"radius", 0.5, nullptr}, {"--radius", "3.5"}},
      {{"radius", 3.0, nullptr}, {"--radius", "7"}},
      {{"threshold", 0.6, nullptr}, {"--threshold", "153"}},  // 153.0
      {{"threshold", 0.5, nullptr}, {"--threshold", "128"}},  // 127.5 rounds up
      {{"strength", 0.1, nullptr}, {"--strength", "0"}},
      {{"strength", 0.67, nullptr}, {"--strength", "2"}},
      {{"opacity", 0.8, nullptr}, {"--opacity", "204"}},
      {{"blend-mode", 0.25, nullptr}, {"--blend-mode", "7"}},
      {{"blend-mode", 9.0, nullptr}, {"--blend-mode", "28"}},
      {{"output-mode", 0, "glow"}, {"--output-mode", "glow"}},
      {{"output-mode", 0, "1"}, {"--output-mode", "blurred"}},
      {{"output-mode", 0, "-5"}, {"--output-mode", "glow"}},
      {{"output-mode", 0, "bogus"}, {}},
      {{"tint-amount", 0.3, nullptr}, {"--tint-amount", "0.3"}},
      {{"tint-amount", 4.0, nullptr}, {"--tint-amount", "1"}},
      {{"tint-hue", nan, nullptr}, {}},
      {{"tone-mapping", 0.5, nullptr}, {"--tone-mapping", "on"}},  // frei0r: 0.5 is true
  };
  const uint32_t w = 61, h = 35;
  const Frame in = RandomFrame(w, h, 4);
  for (const Case& c : cases) {
    std::string logged;
    Frame out;
    logged = CaptureStderr([&] { out = RunPlugin(plugin, w, h, in, {c.setting}); });
    EXPECT_EQ(out, RunTool("blackmist", c.tool, w, h, in))
        << c.setting.param << " " << (c.setting.text ? c.setting.text : std::to_string(c.setting.number));
    if (c.setting.text && c.tool.empty()) {
      EXPECT_EQ(CountLines(logged, "'bogus'"), 1) << logged;
    }
  }
}

// BlackMist refuses a frame one pixel high: the frames come out as copies of the input. The
// plugin says so once per process (melt makes two instances at the start), and an instance does
// not ask the engine again with the same settings.
TEST(Frei0rBlackMist, RefusedFramesPassThroughLoggedOnce) {
  Plugin plugin("blackmist");
  ASSERT_TRUE(plugin.Loaded());
  const Frame in = RandomFrame(8, 1, 5);
  f0r_instance_t a = plugin.construct(8, 1), b = plugin.construct(8, 1);
  const auto update = [&](f0r_instance_t instance) {
    Frame out(in.size(), 0);
    plugin.update(instance, 0.0, reinterpret_cast<const uint32_t*>(in.data()),
                  reinterpret_cast<uint32_t*>(out.data()));
    EXPECT_EQ(out, in);
  };
  const std::string first = CaptureStderr([&] { update(a); });
  const std::string again = CaptureStderr([&] { update(a), update(a); });
  const std::string other = CaptureStderr([&] { update(b); });
  plugin.destruct(a);
  plugin.destruct(b);
  EXPECT_EQ(CountLines(first, "vantyx_blackmist: BlackMist call failed: 0x80004005"), 1) << first;
  EXPECT_EQ(again, "");
  EXPECT_EQ(CountLines(other, "vantyx_blackmist:"), 0) << other;
  EXPECT_GE(CountLines(other, "[VNTX]"), 1) << other;
}

}  // namespace
