// Units of the vantyx tool that whole runs (end_to_end.sh) do not reach: every option's
// messages, defaults and record field, exact PNG and close JPEG round trips, damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>
#if defined(_WIN32)
#include <io.h>
#endif

#include "effect_table.h"
#include "image_io.h"
#include "options.h"
#include "runner.h"
#include "vantyx.h"

namespace VantyxTool {
namespace {

// The request for `args`, resolved for a w x h frame; `error` holds the message of a failure.
struct Parsed {
  bool ok;
  ApplyRequest request;
  FrameSettings settings;
  std::string error;
  double Value(const char* name) const {
    return settings.values[size_t(FindOption(*request.effect, name))];
  }
};
Parsed Parse(std::vector<std::string> args, int32_t w = 600, int32_t h = 400) {
  Parsed p;
  p.ok = ParseApply(args, &p.request, &p.error) &&
         (p.request.help || SettingsForFrame(p.request, w, h, &p.settings, &p.error));
  return p;
}

TEST(ToolOptions, ValuesDefaultsAndTheCallChosen) {
  Parsed p = Parse({"blackmist", "--intensity=0.5", "--threshold", "200", "in.png", "out.jpg"});
  ASSERT_TRUE(p.ok) << p.error;
  EXPECT_FALSE(p.request.full_call);  // only basic-record options
  EXPECT_EQ(p.request.input + " " + p.request.output, "in.png out.jpg");
  EXPECT_EQ(p.Value("intensity"), 0.5);
  EXPECT_EQ(p.Value("threshold"), 200);
  EXPECT_EQ(p.settings.rect.right * 1000 + p.settings.rect.bottom, 600400u);  // the whole frame
  p = Parse({"blackmist", "--strength", "3", "--output-mode", "glow", "--tone-mapping=on", "a.png", "b.png"});
  ASSERT_TRUE(p.ok) << p.error;
  EXPECT_TRUE(p.request.full_call);
  EXPECT_EQ(float(p.Value("weight-blur")), 0.1f);  // preset 3 (preset 1: RecordsCarryTheValues)
  EXPECT_EQ(float(p.Value("weight-src")), 0.9f);
  EXPECT_EQ(p.Value("output-mode"), 0);
  EXPECT_EQ(p.Value("tone-mapping"), 1);
  EXPECT_EQ(Parse({"blackmist", "--output-mode", "3", "a.png", "b.png"}).Value("output-mode"), 3);
  // Bounds themselves are allowed; after "--" a name may start with a dash.
  EXPECT_TRUE(Parse({"blackmist", "--intensity", "2", "--tint-hue", "1", "--opacity", "0", "a.png", "b.png"}).ok);
  p = Parse({"blackmist", "--", "-in.png", "out.png"});
  EXPECT_EQ(p.request.input, "-in.png");
  EXPECT_TRUE(Parse({"blackmist", "--help"}).request.help);
  p = Parse({"blackmist", "--rect", "10,20,30,40", "--mask", "m.png", "--raw", "64x48", "-", "-"}, 64, 48);
  ASSERT_TRUE(p.ok) << p.error;
  EXPECT_EQ(p.request.raw_width * 100 + p.request.raw_height, 6448);
  EXPECT_EQ(p.request.mask_path, "m.png");
  EXPECT_EQ(p.settings.rect.Width() * 100 + p.settings.rect.Height(), 2020u);
}

// Each refusal names the option, the value as typed and what is allowed.
TEST(ToolOptions, EveryRefusalSaysWhatIsAllowed) {
  // Arguments after "blackmist"; "F" stands for the two files a.png b.png.
  const struct {
    std::vector<std::string> args;
    int32_t w, h;
    std::vector<std::string> pieces;
  } rows[] = {
      {{"--intensity", "3", "F"}, 600, 400, {"--intensity", "'3'", "0..2"}},
      {{"--threshold", "256", "F"}, 600, 400, {"--threshold", "'256'", "0..255"}},
      {{"--tint-amount", "-0.1", "F"}, 600, 400, {"'-0.1'", "0 or more"}},
      {{"--strength", "1.5", "F"}, 600, 400, {"whole number", "0..3"}},
      {{"--opacity", "abc", "F"}, 600, 400, {"--opacity", "'abc'"}},
      {{"--intensity", "nan", "F"}, 600, 400, {"not a number"}},
      {{"--output-mode", "sepia", "F"}, 600, 400, {"glow=0"}},
      {{"--blend-mode", "29", "F"}, 600, 400, {"0..28"}},
      {{"--jpeg-quality", "0", "F"}, 600, 400, {"1..100"}},
      {{"--radius", "-1", "F"}, 600, 400, {"0..max(w,h)/8"}},  // before the picture is known
      {{"--radius", "75.5", "F"}, 600, 400, {"--radius", "'75.5'", "0..75", "600x400"}},
      {{"--blend-blur-radius", "7.5", "F"}, 63, 9, {"0..7"}},  // 63 / 8 = 7, integer division
      {{"--rect", "0,0,65,48", "F"}, 64, 48, {"--rect", "right <= 64"}},
      {{"--rect", "5,5,5,9", "F"}, 64, 48, {"--rect"}},
      {{"--rect", "1,2,3", "F"}, 64, 48, {"L,T,R,B"}},
      {{"--raw", "64by48", "-", "-"}, 64, 48, {"WxH"}},
      {{"--raw", "0x48", "-", "-"}, 64, 48, {"--raw"}},
      {{"--intensify", "1", "F"}, 64, 48, {"unknown option '--intensify'"}},
      {{"-x", "F"}, 64, 48, {"unknown option '-x'"}},
      {{"F", "c.png"}, 64, 48, {"got 3"}},
      {{"-", "b.png"}, 64, 48, {"--raw WxH"}},
      {{"a.png"}, 64, 48, {"input and an output"}},
      {{"--intensity"}, 64, 48, {"needs a value"}},
  };
  for (const auto& r : rows) {
    std::vector<std::string> args{"blackmist"};
    for (const std::string& a : r.args) {
      if (a == "F") args.insert(args.end(), {"a.png", "b.png"});
      else args.push_back(a);
    }
    const Parsed p = Parse(args, r.w, r.h);
    EXPECT_FALSE(p.ok) << r.args[0];
    for (const std::string& piece : r.pieces)
      EXPECT_NE(p.error.find(piece), std::string::npos) << r.args[0] << ": " << p.error;
  }
  const struct {
    std::vector<std::string> args;
    const char* piece;
  } shapes[] = {{{"fog", "a.png", "b.png"}, "unknown effect 'fog' (known: blackmist, halation, infrared, amberfade)"},
                {{}, "effect name"}};
  for (const auto& s : shapes) {
    const Parsed p = Parse(s.args);
    EXPECT_FALSE(p.ok) << s.piece;
    EXPECT_NE(p.error.find(s.piece), std::string::npos) << p.error;
  }
}

TEST(ToolEffectTable, HelpShowsEveryOptionWithItsRange) {
  for (const EffectSpec& effect : Effects()) {
    const std::string help = ApplyHelp(&effect);
    for (size_t i = 0; i < effect.option_count; ++i) {
      const OptionSpec& option = effect.options[i];
      const size_t at = help.find("--" + std::string(option.name) + " ");
      ASSERT_NE(at, std::string::npos) << option.name;
      EXPECT_EQ(help.compare(help.find('[', at) + 1, RangeText(option).size(), RangeText(option)), 0)
          << option.name;
    }
  }
}

// Every option of every effect lands inside its records, on a field of its type's size, and no
// two options share a field.
TEST(ToolEffectTable, OptionsMapOntoDistinctRecordFields) {
  for (const EffectSpec& effect : Effects()) {
    for (int full = 0; full < 2; ++full) {
      const size_t size = full ? effect.full_size : effect.basic_size;
      const size_t rect = full ? effect.full_rect_offset : effect.basic_rect_offset;
      std::vector<int> owner(size, -1);
      for (size_t b = 0; b < 96; ++b) owner[b] = 1000;  // the three image views
      for (size_t b = rect; b < rect + 16; ++b) owner[b] = 1001;
      auto claim = [&](int32_t offset, FieldType type, int id) {
        if (offset < 0) return;
        const size_t bytes = type == FieldType::kU8 ? 1 : 4;
        ASSERT_LE(size_t(offset) + bytes, size) << effect.name;
        for (size_t b = size_t(offset); b < size_t(offset) + bytes; ++b) {
          EXPECT_EQ(owner[b], -1) << effect.name << " field " << id << " byte " << b;
          owner[b] = id;
        }
      };
      for (size_t i = 0; i < effect.option_count; ++i)
        claim(full ? effect.options[i].full_offset : effect.options[i].basic_offset,
              effect.options[i].type, int(i));
      for (size_t i = 0; i < effect.fixed_count; ++i)
        claim(full ? effect.fixed[i].full_offset : effect.fixed[i].basic_offset, effect.fixed[i].type,
              int(500 + i));
    }
  }
}

// The records hold every option, default and fixed field at its place, and nothing else (the
// images and the rectangle are filled per frame).
TEST(ToolEffectTable, RecordsCarryTheValues) {
  Parsed p = Parse({"blackmist", "--intensity", "1.5", "--radius", "3", "--threshold", "90",
                    "--strength", "2", "a.png", "b.png"}, 64, 48);
  ASSERT_TRUE(p.ok) << p.error;
  Vantyx::BlackMistParam basic{};
  basic.light_intensity = 1.5f, basic.soft_radius = 3.0f, basic.hlr_threshold = 90, basic.strength = 2;
  std::vector<uint8_t> bytes = BuildParamRecord(*p.request.effect, p.settings);
  ASSERT_EQ(bytes.size(), sizeof(basic));
  EXPECT_EQ(std::memcmp(bytes.data(), &basic, sizeof(basic)), 0);

  p = Parse({"blackmist", "--tint-amount", "0.25", "--output-mode", "blurred", "--blur-blended", "off",
             "a.png", "b.png"}, 64, 48);
  ASSERT_TRUE(p.ok) << p.error;
  p.settings.full_call = p.request.full_call;
  Vantyx::BlackMistFullParam full{};
  full.light_intensity = 1, full.soft_radius = 2, full.hlr_threshold = 160;  // 64 / 8 x 0.25
  full.tint_amount = 0.25f, full.tint_brightness = 1, full.blend_opacity = 255;
  full.weight_blur = 0.27f, full.weight_src = 0.73f, full.reserved_f = 1, full.keep_saturation = 1;
  full.blend_blur_radius = float(64 / 8) * 0.06f, full.blend_mode = 5, full.output_mode = 1;
  full.strength = 1, full.reserved_i = 1;
  bytes = BuildParamRecord(*p.request.effect, p.settings);
  ASSERT_EQ(bytes.size(), sizeof(full));
  EXPECT_EQ(std::memcmp(bytes.data(), &full, sizeof(full)), 0);
}

TEST(ToolRunner, EngineRefusalsComeBackAsMessages) {
  EffectSpec unknown = *FindEffect("blackmist");
  unknown.type = 99;
  EffectRunner runner;
  std::string error;
  EXPECT_FALSE(runner.Open(unknown, &error));
  EXPECT_NE(error.find("0x80004001 not implemented"), std::string::npos) << error;
  ASSERT_TRUE(runner.Open(*FindEffect("blackmist"), &error)) << error;
  EXPECT_FALSE(runner.SetImageSize(0, 10, &error));
  EXPECT_NE(error.find("0x80070057 invalid argument"), std::string::npos) << error;
}

// ---- image files ------------------------------------------------------------------------------

Image Picture(int32_t w, int32_t h, bool alpha) {
  Image image;
  image.width = w, image.height = h, image.has_alpha = alpha;
  for (int32_t y = 0; y < h; ++y)  // smooth gradients: JPEG keeps them well
    for (int32_t x = 0; x < w; ++x)
      image.bgra.insert(image.bgra.end(), {uint8_t(40 + x * 3), uint8_t(60 + y * 4),
                                           uint8_t(200 - x * 2), uint8_t(alpha ? x * 13 + y : 255)});
  return image;
}

// PNG is exact with and without alpha, JPEG close; damaged files are refused with a message;
// nothing but the files named here is left behind (no temporary beside an output).
TEST(ToolImageIo, RoundTripsAndDamagedFiles) {
  std::string dir = ::testing::TempDir() + "vantyx_tool_XXXXXX", error;
#if defined(_WIN32)
  ASSERT_EQ(_mktemp_s(&dir[0], dir.size() + 1), 0);
  ASSERT_EQ(mkdir(dir.c_str()), 0);
#else
  ASSERT_NE(mkdtemp(&dir[0]), nullptr);
#endif
  const std::string png = dir + "/a.png", jpg = dir + "/a.JPG", bad = dir + "/bad.png";
  for (bool alpha : {true, false}) {
    const Image written = Picture(33, 17, alpha);
    Image read;
    ASSERT_TRUE(WriteImage(png, written, 92, &error) && ReadImage(png, &read, &error)) << error;
    EXPECT_EQ(read.width * 100 + read.height, 3317);
    EXPECT_EQ(read.has_alpha, alpha);
    EXPECT_EQ(read.bgra, written.bgra);
  }
  const Image written = Picture(48, 32, false);
  Image read;
  ASSERT_TRUE(WriteImage(jpg, written, 95, &error) && ReadImage(jpg, &read, &error)) << error;
  ASSERT_EQ(read.bgra.size(), written.bgra.size());
  EXPECT_FALSE(read.has_alpha);
  int total = 0, worst = 0;
  for (size_t i = 0; i < read.bgra.size(); ++i) {
    total += std::abs(int(read.bgra[i]) - int(written.bgra[i]));
    worst = std::max(worst, std::abs(int(read.bgra[i]) - int(written.bgra[i])));
  }
  EXPECT_LT(total, 2 * int(read.bgra.size()));
  EXPECT_LT(worst, 16);
  std::ifstream in(png, std::ios::binary);
  const std::string good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  in.close();
  std::ofstream(bad, std::ios::binary) << good.substr(0, good.size() / 2);  // cut short
  EXPECT_FALSE(ReadImage(bad, &read, &error));
  EXPECT_NE(error.find("corrupt PNG"), std::string::npos) << error;
#if !defined(_WIN32)  // the Windows build's PNG decoder does not verify checksums
  std::string damaged = good;
  damaged[damaged.size() / 2] ^= 0x5A;  // a CRC no longer matches
  std::ofstream(bad, std::ios::binary) << damaged;
  EXPECT_FALSE(ReadImage(bad, &read, &error));
  EXPECT_NE(error.find("corrupt PNG"), std::string::npos) << error;
#endif
  std::ofstream(bad, std::ios::binary) << "hello";
  EXPECT_FALSE(ReadImage(bad, &read, &error));
  EXPECT_NE(error.find("neither a PNG nor a JPEG"), std::string::npos) << error;
  for (const std::string& f : {png, jpg, bad}) EXPECT_EQ(std::remove(f.c_str()), 0) << f;
  EXPECT_EQ(rmdir(dir.c_str()), 0) << "a temporary file was left behind";
}

TEST(ToolImageGrey, GreyPicturesKeepTheirValues) {
  Image image;
  image.width = 256;
  image.height = 1;
  for (int v = 0; v < 256; ++v) image.bgra.insert(image.bgra.end(), {uint8_t(v), uint8_t(v), uint8_t(v), 255});
  const std::vector<uint8_t> grey = GreyOf(image);
  for (int v = 0; v < 256; ++v) EXPECT_EQ(grey[size_t(v)], v);
  // Pure red, green and blue by their weights: (77 x 255 + 128) >> 8 = 77, 149, 29.
  image.width = 3;
  image.bgra = {0, 0, 255, 255, 0, 255, 0, 255, 255, 0, 0, 255};
  EXPECT_EQ(GreyOf(image), (std::vector<uint8_t>{77, 149, 29}));
}

}  // namespace
}  // namespace VantyxTool
