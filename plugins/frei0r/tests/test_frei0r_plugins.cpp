// Plugin instances driven as a frei0r host drives them, every frame compared with what the
// vantyx tool renders from the same settings. tests/hosts.sh loads the built plugins into ffmpeg
// and melt.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "frei0r_instance.h"
#include "options.h"

namespace {

using VantyxFrei0r::PluginDesc;
using VantyxFrei0r::PluginInstance;
using Frame = std::vector<uint8_t>;

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

int32_t Index(const PluginDesc& desc, const std::string& name) {
  int32_t index = 0;
  while (desc.effect->options[desc.params[size_t(index)].option].name != name) ++index;
  return index;
}

// `frames` updates of one instance; the output of the last.
Frame RunPlugin(const PluginDesc& desc, uint32_t width, uint32_t height, const Frame& in,
                const std::vector<Setting>& settings, int frames = 1) {
  PluginInstance instance(desc, width, height);
  for (const Setting& s : settings)
    instance.SetParam(Index(desc, s.param), s.text ? static_cast<const void*>(&s.text) : &s.number);
  Frame out(in.size(), 0);
  for (int i = 0; i < frames; ++i)
    instance.Update(reinterpret_cast<const uint32_t*>(in.data()), reinterpret_cast<uint32_t*>(out.data()));
  return out;
}

// What `vantyx apply EFFECT OPTIONS --raw WxH - -` renders from the frame.
Frame RunTool(const std::string& effect, std::vector<std::string> args, uint32_t width,
              uint32_t height, const Frame& in) {
  using namespace VantyxTool;
  args.insert(args.begin(), effect);
  args.insert(args.end(), {"--raw", std::to_string(width) + "x" + std::to_string(height), "-", "-"});
  ApplyRequest request;
  FrameSettings settings;
  EffectRunner runner;
  std::string error;
  Frame out(in.size(), 0);
  EXPECT_TRUE(ParseApply(args, &request, &error) &&
              SettingsForFrame(request, int32_t(width), int32_t(height), &settings, &error) &&
              runner.Open(*request.effect, &error) &&
              runner.SetImageSize(int32_t(width), int32_t(height), &error) &&
              runner.Render(settings, in.data(), nullptr, out.data(), &error))
      << error;
  return out;
}

// Nothing set: the tool's defaults, also for a frame rendered in place. Two instances of other
// sizes and settings, driven at once from two threads as frei0r allows, render what each
// renders alone.
TEST(Frei0rPlugins, DefaultsAsTheToolAndInstancesShareNothing) {
  for (const std::string effect : {VANTYX_FREI0R_EFFECTS}) {
    SCOPED_TRACE(effect);
    const PluginDesc desc = VantyxFrei0r::DescribePlugin(effect);
    ASSERT_NE(desc.effect, nullptr);
    ASSERT_FALSE(desc.params.empty());
    const Frame in = RandomFrame(61, 35, 1);
    const Frame expected = RunTool(effect, {}, 61, 35, in);
    EXPECT_EQ(RunPlugin(desc, 61, 35, in, {}), expected);
    Frame frame = in;
    PluginInstance(desc, 61, 35).Update(reinterpret_cast<const uint32_t*>(frame.data()),
                                        reinterpret_cast<uint32_t*>(frame.data()));
    EXPECT_EQ(frame, expected);

    const Setting first{desc.effect->options[desc.params[0].option].name, 0.9, nullptr};
    const Frame in_b = RandomFrame(40, 64, 2);
    const Frame alone_a = RunPlugin(desc, 61, 35, in, {first}), alone_b = RunPlugin(desc, 40, 64, in_b, {});
    Frame a, b;
    std::thread thread_a([&] { a = RunPlugin(desc, 61, 35, in, {first}, 4); });
    std::thread thread_b([&] { b = RunPlugin(desc, 40, 64, in_b, {}, 4); });
    thread_a.join();
    thread_b.join();
    EXPECT_EQ(a, alone_a);
    EXPECT_EQ(b, alone_b);
  }
}

// One host setting each: the plugin's frame equals the tool's with the option it maps to. Out of
// range clamps (tests/hosts.sh clamps more); NaN and unknown names set nothing. A 61x35 frame:
// radius 1.0 is 7 pixels.
TEST(Frei0rPlugins, BlackMistHostValuesMapToToolOptions) {
  const PluginDesc desc = VantyxFrei0r::DescribePlugin("blackmist");
  const double nan = std::nan("");
  const struct {
    Setting setting;
    std::vector<std::string> tool;
  } cases[] = {
      {{"intensity", 0.7, nullptr}, {"--intensity", "1.4"}},
      {{"radius", 0.5, nullptr}, {"--radius", "3.5"}},
      {{"radius", 3.0, nullptr}, {"--radius", "7"}},
      {{"threshold", 0.6, nullptr}, {"--threshold", "153"}},  // 153.0
      {{"threshold", 0.5, nullptr}, {"--threshold", "128"}},  // 127.5 rounds up
      {{"strength", 0.67, nullptr}, {"--strength", "2"}},
      {{"opacity", 0.8, nullptr}, {"--opacity", "204"}},
      {{"blend-mode", 0.25, nullptr}, {"--blend-mode", "7"}},
      {{"output-mode", 0, "glow"}, {"--output-mode", "glow"}},
      {{"output-mode", 0, "1"}, {"--output-mode", "blurred"}},
      {{"output-mode", 0, "-5"}, {"--output-mode", "glow"}},
      {{"output-mode", 0, "bogus"}, {}},
      {{"tint-amount", 4.0, nullptr}, {"--tint-amount", "1"}},
      {{"tint-hue", nan, nullptr}, {}},
      {{"tone-mapping", 0.5, nullptr}, {"--tone-mapping", "on"}},  // frei0r: 0.5 is true
  };
  const Frame in = RandomFrame(61, 35, 3);
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.setting.param) + " " +
                 (c.setting.text ? c.setting.text : std::to_string(c.setting.number)));
    EXPECT_EQ(RunPlugin(desc, 61, 35, in, {c.setting}), RunTool("blackmist", c.tool, 61, 35, in));
  }
}

// BlackMist refuses a frame one pixel high: frames come out as copies of the input. The plugin
// says so once per process (melt makes two instances at the start), and an instance does not
// hand the engine the same settings again.
TEST(Frei0rPlugins, RefusalsPassFramesThroughAndAreLoggedOnce) {
  const PluginDesc desc = VantyxFrei0r::DescribePlugin("blackmist");
  const Frame in = RandomFrame(8, 1, 4);
  PluginInstance a(desc, 8, 1), b(desc, 8, 1);
  const auto update = [&](PluginInstance& instance) {
    Frame out(in.size(), 0);
    instance.Update(reinterpret_cast<const uint32_t*>(in.data()), reinterpret_cast<uint32_t*>(out.data()));
    EXPECT_EQ(out, in);
  };
  const auto logged = [](auto body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
  };
  const std::string first = logged([&] { update(a); });
  EXPECT_NE(first.find("vantyx_blackmist: BlackMist call failed: 0x80004005"), std::string::npos) << first;
  EXPECT_EQ(first.find("vantyx_blackmist:"), first.rfind("vantyx_blackmist:")) << first;
  EXPECT_EQ(logged([&] { update(a), update(a); }), "");
  const std::string other = logged([&] { update(b); });
  EXPECT_NE(other.find("[VNTX]"), std::string::npos);
  EXPECT_EQ(other.find("vantyx_blackmist:"), std::string::npos) << other;
}

}  // namespace
