// Units of the vantyx tool: option parsing and range messages, the records it builds, PNG and
// JPEG round trips and the engine calls through the public header.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
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

bool Parse(std::vector<std::string> args, ApplyRequest* request, std::string* error) {
  return ParseApply(args, request, error);
}

// The error for `blackmist <option> <value> in.png out.png`.
std::string ParseError(const std::string& option, const std::string& value) {
  ApplyRequest request;
  std::string error;
  EXPECT_FALSE(Parse({"blackmist", option, value, "in.png", "out.png"}, &request, &error))
      << option << " " << value;
  return error;
}

double Value(const ApplyRequest& request, const FrameSettings& settings, const char* name) {
  const int32_t index = FindOption(*request.effect, name);
  EXPECT_GE(index, 0) << name;
  return settings.values[size_t(index)];
}

TEST(ToolOptions, ValuesTypedEitherWayAndCallChosenByRecord) {
  ApplyRequest request;
  std::string error;
  ASSERT_TRUE(Parse({"blackmist", "--intensity=0.5", "--threshold", "200", "in.png", "out.jpg"},
                    &request, &error))
      << error;
  EXPECT_FALSE(request.full_call);  // only basic-record options
  EXPECT_EQ(request.input, "in.png");
  EXPECT_EQ(request.output, "out.jpg");
  FrameSettings settings;
  ASSERT_TRUE(SettingsForFrame(request, 600, 400, &settings, &error)) << error;
  EXPECT_EQ(Value(request, settings, "intensity"), 0.5);
  EXPECT_EQ(Value(request, settings, "threshold"), 200);

  ASSERT_TRUE(Parse({"blackmist", "--output-mode", "glow", "--tone-mapping=on", "in.png",
                     "out.png"},
                    &request, &error));
  EXPECT_TRUE(request.full_call);
  ASSERT_TRUE(SettingsForFrame(request, 600, 400, &settings, &error));
  EXPECT_EQ(Value(request, settings, "output-mode"), 0);
  EXPECT_EQ(Value(request, settings, "tone-mapping"), 1);
  // A choice may also be given by number.
  ASSERT_TRUE(Parse({"blackmist", "--output-mode", "3", "a.png", "b.png"}, &request, &error));
  ASSERT_TRUE(SettingsForFrame(request, 8, 8, &settings, &error));
  EXPECT_EQ(Value(request, settings, "output-mode"), 3);
}

TEST(ToolOptions, RangeErrorsNameOptionValueAndRange) {
  std::string e = ParseError("--intensity", "3");
  EXPECT_NE(e.find("--intensity"), std::string::npos) << e;
  EXPECT_NE(e.find("'3'"), std::string::npos) << e;
  EXPECT_NE(e.find("0..2"), std::string::npos) << e;

  e = ParseError("--threshold", "256");
  EXPECT_NE(e.find("--threshold"), std::string::npos) << e;
  EXPECT_NE(e.find("'256'"), std::string::npos) << e;
  EXPECT_NE(e.find("0..255"), std::string::npos) << e;

  e = ParseError("--tint-amount", "-0.1");
  EXPECT_NE(e.find("'-0.1'"), std::string::npos) << e;
  EXPECT_NE(e.find("0 or more"), std::string::npos) << e;

  e = ParseError("--strength", "1.5");  // an integer field
  EXPECT_NE(e.find("whole number"), std::string::npos) << e;
  EXPECT_NE(e.find("0..3"), std::string::npos) << e;

  e = ParseError("--opacity", "abc");
  EXPECT_NE(e.find("--opacity"), std::string::npos) << e;
  EXPECT_NE(e.find("'abc'"), std::string::npos) << e;

  e = ParseError("--intensity", "nan");
  EXPECT_NE(e.find("not a number"), std::string::npos) << e;

  e = ParseError("--output-mode", "sepia");
  EXPECT_NE(e.find("glow=0"), std::string::npos) << e;

  e = ParseError("--blend-mode", "29");
  EXPECT_NE(e.find("0..28"), std::string::npos) << e;

  e = ParseError("--jpeg-quality", "0");
  EXPECT_NE(e.find("1..100"), std::string::npos) << e;

  // Bounds themselves are allowed.
  ApplyRequest request;
  std::string error;
  EXPECT_TRUE(Parse({"blackmist", "--intensity", "2", "--tint-hue", "1", "--opacity", "0", "a.png",
                     "b.png"},
                    &request, &error))
      << error;
}

TEST(ToolOptions, RadiusMaximumDependsOnThePicture) {
  ApplyRequest request;
  std::string error;
  // 600x400: max(w,h)/8 = 75. 75 fits, 75.5 does not, and the message gives the real bound.
  ASSERT_TRUE(Parse({"blackmist", "--radius", "75", "a.png", "b.png"}, &request, &error));
  FrameSettings settings;
  EXPECT_TRUE(SettingsForFrame(request, 600, 400, &settings, &error)) << error;
  ASSERT_TRUE(Parse({"blackmist", "--radius", "75.5", "a.png", "b.png"}, &request, &error));
  EXPECT_FALSE(SettingsForFrame(request, 600, 400, &settings, &error));
  EXPECT_NE(error.find("--radius"), std::string::npos) << error;
  EXPECT_NE(error.find("'75.5'"), std::string::npos) << error;
  EXPECT_NE(error.find("0..75"), std::string::npos) << error;
  EXPECT_NE(error.find("600x400"), std::string::npos) << error;
  // 63x9: 63/8 = 7 (integer division).
  ASSERT_TRUE(Parse({"blackmist", "--blend-blur-radius", "8", "a.png", "b.png"}, &request, &error));
  EXPECT_FALSE(SettingsForFrame(request, 63, 9, &settings, &error));
  EXPECT_NE(error.find("0..7"), std::string::npos) << error;
  // Negative values are refused before the picture is known.
  EXPECT_NE(ParseError("--radius", "-1").find("0..max(w,h)/8"), std::string::npos);
}

TEST(ToolOptions, DefaultsFollowThePictureAndTheStrength) {
  ApplyRequest request;
  std::string error;
  ASSERT_TRUE(Parse({"blackmist", "a.png", "b.png"}, &request, &error));
  FrameSettings settings;
  ASSERT_TRUE(SettingsForFrame(request, 600, 400, &settings, &error));
  EXPECT_EQ(Value(request, settings, "radius"), 75 * 0.25);  // a quarter of max(w,h)/8
  EXPECT_EQ(float(Value(request, settings, "blend-blur-radius")), 75.0f * 0.06f);
  EXPECT_EQ(float(Value(request, settings, "weight-blur")), 0.27f);  // preset 1
  EXPECT_EQ(float(Value(request, settings, "weight-src")), 0.73f);
  EXPECT_EQ(Value(request, settings, "blend-mode"), 5);
  EXPECT_EQ(Value(request, settings, "keep-saturation"), 1);
  EXPECT_EQ(settings.rect.right, 600u);
  EXPECT_EQ(settings.rect.bottom, 400u);

  ASSERT_TRUE(Parse({"blackmist", "--strength", "3", "a.png", "b.png"}, &request, &error));
  ASSERT_TRUE(SettingsForFrame(request, 600, 400, &settings, &error));
  EXPECT_EQ(float(Value(request, settings, "weight-blur")), 0.1f);
  EXPECT_EQ(float(Value(request, settings, "weight-src")), 0.9f);
}

TEST(ToolOptions, FrameOptionsAndCommandLineShape) {
  ApplyRequest request;
  std::string error;
  ASSERT_TRUE(Parse({"blackmist", "--rect", "10,20,30,40", "--mask", "m.png", "--raw", "64x48",
                     "-", "-"},
                    &request, &error))
      << error;
  EXPECT_TRUE(request.raw);
  EXPECT_EQ(request.raw_width, 64);
  EXPECT_EQ(request.raw_height, 48);
  EXPECT_EQ(request.mask_path, "m.png");
  FrameSettings settings;
  ASSERT_TRUE(SettingsForFrame(request, 64, 48, &settings, &error)) << error;
  EXPECT_EQ(settings.rect.Width(), 20u);
  EXPECT_EQ(settings.rect.Height(), 20u);
  // The rectangle must lie inside the frame.
  ASSERT_TRUE(Parse({"blackmist", "--rect", "0,0,65,48", "--raw", "64x48", "-", "-"}, &request,
                    &error));
  EXPECT_FALSE(SettingsForFrame(request, 64, 48, &settings, &error));
  EXPECT_NE(error.find("--rect"), std::string::npos) << error;
  EXPECT_NE(error.find("right <= 64"), std::string::npos) << error;

  const struct {
    std::vector<std::string> args;
    const char* expect;  // a piece of the message
  } bad[] = {
      {{"blackmist", "--rect", "5,5,5,9", "a.png", "b.png"}, "--rect"},
      {{"blackmist", "--rect", "1,2,3", "a.png", "b.png"}, "L,T,R,B"},
      {{"blackmist", "--raw", "64by48", "-", "-"}, "WxH"},
      {{"blackmist", "--raw", "0x48", "-", "-"}, "--raw"},
      {{"blackmist", "a.png"}, "input and an output"},
      {{"blackmist", "a.png", "b.png", "c.png"}, "got 3"},
      {{"blackmist", "-", "b.png"}, "--raw WxH"},
      {{"blackmist", "--intensity"}, "needs a value"},
      {{"blackmist", "--intensify", "1", "a.png", "b.png"}, "unknown option '--intensify'"},
      {{"blackmist", "-x", "a.png", "b.png"}, "unknown option '-x'"},
      {{"fog", "a.png", "b.png"}, "unknown effect 'fog' (known: blackmist, halation)"},
      {{}, "effect name"},
  };
  for (const auto& c : bad) {
    EXPECT_FALSE(Parse(c.args, &request, &error)) << c.expect;
    EXPECT_NE(error.find(c.expect), std::string::npos) << error;
  }
  // After "--" a name that starts with a dash is a file.
  ASSERT_TRUE(Parse({"blackmist", "--", "-in.png", "out.png"}, &request, &error)) << error;
  EXPECT_EQ(request.input, "-in.png");
  ASSERT_TRUE(Parse({"blackmist", "--help"}, &request, &error));
  EXPECT_TRUE(request.help);
}

TEST(ToolOptions, HelpShowsEveryOptionWithRangeAndDefault) {
  for (const EffectSpec& effect : Effects()) {
    const std::string help = ApplyHelp(&effect);
    for (size_t i = 0; i < effect.option_count; ++i) {
      const OptionSpec& option = effect.options[i];
      const size_t at = help.find("--" + std::string(option.name) + " ");
      ASSERT_NE(at, std::string::npos) << option.name;
      const size_t bracket = help.find('[', at);
      EXPECT_EQ(help.compare(bracket + 1, RangeText(option).size(), RangeText(option)), 0)
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
      for (size_t i = 0; i < effect.option_count; ++i) {
        claim(full ? effect.options[i].full_offset : effect.options[i].basic_offset,
              effect.options[i].type, int(i));
      }
      for (size_t i = 0; i < effect.fixed_count; ++i) {
        claim(full ? effect.fixed[i].full_offset : effect.fixed[i].basic_offset,
              effect.fixed[i].type, int(500 + i));
      }
    }
  }
}

TEST(ToolEffectTable, RecordsCarryTheValues) {
  ApplyRequest request;
  std::string error;
  ASSERT_TRUE(Parse({"blackmist", "--intensity", "1.5", "--radius", "3", "--threshold", "90",
                     "--strength", "2", "a.png", "b.png"},
                    &request, &error));
  FrameSettings settings;
  ASSERT_TRUE(SettingsForFrame(request, 64, 48, &settings, &error));
  std::vector<uint8_t> bytes = BuildParamRecord(*request.effect, settings);
  ASSERT_EQ(bytes.size(), sizeof(Vantyx::BlackMistParam));
  Vantyx::BlackMistParam basic;
  std::memcpy(&basic, bytes.data(), sizeof(basic));
  EXPECT_EQ(basic.light_intensity, 1.5f);
  EXPECT_EQ(basic.soft_radius, 3.0f);
  EXPECT_EQ(basic.hlr_threshold, 90u);
  EXPECT_EQ(basic.strength, 2);

  ASSERT_TRUE(Parse({"blackmist", "--tint-amount", "0.25", "--output-mode", "blurred",
                     "--blur-blended", "off", "a.png", "b.png"},
                    &request, &error));
  ASSERT_TRUE(SettingsForFrame(request, 64, 48, &settings, &error));
  settings.full_call = request.full_call;
  bytes = BuildParamRecord(*request.effect, settings);
  ASSERT_EQ(bytes.size(), sizeof(Vantyx::BlackMistFullParam));
  Vantyx::BlackMistFullParam full;
  std::memcpy(&full, bytes.data(), sizeof(full));
  EXPECT_EQ(full.tint_amount, 0.25f);
  EXPECT_EQ(full.output_mode, 1);
  EXPECT_EQ(full.blur_blended, 0);
  EXPECT_EQ(full.keep_saturation, 1);
  EXPECT_EQ(full.blend_mode, 5);
  EXPECT_EQ(full.blend_opacity, 255u);
  EXPECT_EQ(full.tint_brightness, 1.0f);
  EXPECT_EQ(full.reserved_f, 1.0f);
  EXPECT_EQ(full.reserved_i, 1);
  EXPECT_EQ(full.blend_blur_radius, float(64 / 8) * 0.06f);
  EXPECT_EQ(full.soft_radius, 2.0f);  // 64/8 * 0.25
}

TEST(ToolRunner, ResultCodesSpeakToAPerson) {
  EXPECT_EQ(DescribeResult(Vantyx::VX_E_INVALIDARG), "0x80070057 invalid argument");
  EXPECT_EQ(DescribeResult(Vantyx::VX_E_NOTIMPL), "0x80004001 not implemented / unsupported");
  EXPECT_EQ(DescribeResult(Vantyx::VX_E_FAIL), "0x80004005 failed");
  EXPECT_EQ(DescribeResult(Vantyx::VX_E_POINTER), "0x80004003 null pointer");
  EXPECT_EQ(DescribeResult(Vantyx::VX_E_OUTOFMEMORY), "0x8007000e out of memory");
}

// A small picture with highlights, so the effect has something to do.
std::vector<uint8_t> TestFrame(int32_t w, int32_t h) {
  std::vector<uint8_t> bgra(size_t(w) * h * 4);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* p = &bgra[(size_t(y) * w + x) * 4];
      const bool spot = (x - w / 2) * (x - w / 2) + (y - h / 2) * (y - h / 2) < 16;
      p[0] = uint8_t(spot ? 250 : x * 5);
      p[1] = uint8_t(spot ? 252 : y * 7);
      p[2] = uint8_t(spot ? 255 : 40 + (x ^ y));
      p[3] = 255;
    }
  }
  return bgra;
}

TEST(ToolRunner, FullCallWithDefaultsMatchesTheBasicCall) {
  ApplyRequest request;
  std::string error;
  ASSERT_TRUE(Parse({"blackmist", "--threshold", "120", "a.png", "b.png"}, &request, &error));
  const int32_t w = 37, h = 29;
  FrameSettings settings;
  ASSERT_TRUE(SettingsForFrame(request, w, h, &settings, &error));
  const std::vector<uint8_t> src = TestFrame(w, h);
  EffectRunner runner;
  ASSERT_TRUE(runner.Open(*request.effect, &error)) << error;
  ASSERT_TRUE(runner.SetImageSize(w, h, &error)) << error;
  std::vector<uint8_t> basic(src.size()), full(src.size());
  ASSERT_TRUE(runner.Render(settings, src.data(), nullptr, basic.data(), &error)) << error;
  settings.full_call = true;
  ASSERT_TRUE(runner.Render(settings, src.data(), nullptr, full.data(), &error)) << error;
  EXPECT_EQ(basic, full);
  EXPECT_NE(basic, src);  // the glow changed something

  // Output mode "source" copies the picture.
  const int32_t mode = FindOption(*request.effect, "output-mode");
  settings.values[size_t(mode)] = 3;
  ASSERT_TRUE(runner.Render(settings, src.data(), nullptr, full.data(), &error)) << error;
  EXPECT_EQ(full, src);
}

TEST(ToolRunner, EngineRefusalsComeBackAsMessages) {
  EffectSpec unknown = *FindEffect("blackmist");
  unknown.type = 99;
  EffectRunner runner;
  std::string error;
  EXPECT_FALSE(runner.Open(unknown, &error));
  EXPECT_NE(error.find("0x80004001"), std::string::npos) << error;

  ASSERT_TRUE(runner.Open(*FindEffect("blackmist"), &error)) << error;
  EXPECT_FALSE(runner.SetImageSize(0, 10, &error));
  EXPECT_NE(error.find("0x80070057 invalid argument"), std::string::npos) << error;
}

// ---- image files ------------------------------------------------------------------------------

class ToolImageIo : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string base = ::testing::TempDir() + "vantyx_tool_XXXXXX";
#if defined(_WIN32)
    ASSERT_EQ(_mktemp_s(&base[0], base.size() + 1), 0);
    ASSERT_EQ(mkdir(base.c_str()), 0);
#else
    ASSERT_NE(mkdtemp(&base[0]), nullptr);
#endif
    m_dir = base;
  }
  void TearDown() override {
    if (DIR* d = opendir(m_dir.c_str())) {
      while (dirent* e = readdir(d)) {
        if (e->d_name[0] != '.') unlink((m_dir + "/" + e->d_name).c_str());
      }
      closedir(d);
    }
    rmdir(m_dir.c_str());
  }
  std::string Path(const char* name) const { return m_dir + "/" + name; }
  size_t FileCount() const {
    size_t n = 0;
    if (DIR* d = opendir(m_dir.c_str())) {
      while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
      closedir(d);
    }
    return n;
  }
  void WriteBytes(const char* name, const std::vector<uint8_t>& bytes) const {
    FILE* f = std::fopen(Path(name).c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
  std::vector<uint8_t> ReadBytes(const char* name) const {
    std::vector<uint8_t> bytes;
    FILE* f = std::fopen(Path(name).c_str(), "rb");
    if (!f) return bytes;
    int c;
    while ((c = std::fgetc(f)) != EOF) bytes.push_back(uint8_t(c));
    std::fclose(f);
    return bytes;
  }
  std::string m_dir;
};

Image Picture(int32_t w, int32_t h, bool alpha) {
  Image image;
  image.width = w;
  image.height = h;
  image.has_alpha = alpha;
  image.bgra = TestFrame(w, h);
  for (size_t i = 3; alpha && i < image.bgra.size(); i += 4) image.bgra[i] = uint8_t(i * 13);
  return image;
}

TEST_F(ToolImageIo, PngRoundTripIsExactWithAndWithoutAlpha) {
  std::string error;
  for (bool alpha : {true, false}) {
    const Image written = Picture(33, 17, alpha);
    ASSERT_TRUE(WriteImage(Path("a.png"), written, 92, &error)) << error;
    Image read;
    ASSERT_TRUE(ReadImage(Path("a.png"), &read, &error)) << error;
    EXPECT_EQ(read.width, 33);
    EXPECT_EQ(read.height, 17);
    EXPECT_EQ(read.has_alpha, alpha);
    EXPECT_EQ(read.bgra, written.bgra);  // alpha-less pictures come back with 255
  }
  EXPECT_EQ(FileCount(), 1u);  // no temporary left beside it
}

TEST_F(ToolImageIo, JpegRoundTripIsClose) {
  std::string error;
  Image written;
  written.width = 48;
  written.height = 32;
  written.bgra.resize(48 * 32 * 4);
  for (int32_t y = 0; y < 32; ++y) {  // smooth gradients: JPEG keeps them well
    for (int32_t x = 0; x < 48; ++x) {
      uint8_t* p = &written.bgra[size_t(y * 48 + x) * 4];
      p[0] = uint8_t(40 + x * 3);
      p[1] = uint8_t(60 + y * 4);
      p[2] = uint8_t(200 - x * 2);
      p[3] = 255;
    }
  }
  ASSERT_TRUE(WriteImage(Path("a.JPG"), written, 95, &error)) << error;
  Image read;
  ASSERT_TRUE(ReadImage(Path("a.JPG"), &read, &error)) << error;
  ASSERT_EQ(read.width, 48);
  ASSERT_EQ(read.height, 32);
  EXPECT_FALSE(read.has_alpha);
  double total = 0;
  int worst = 0;
  for (size_t i = 0; i < read.bgra.size(); ++i) {
    const int d = std::abs(int(read.bgra[i]) - int(written.bgra[i]));
    total += d;
    worst = std::max(worst, d);
    if (i % 4 == 3) {
      EXPECT_EQ(read.bgra[i], 255);
    }
  }
  EXPECT_LT(total / double(read.bgra.size()), 2.0);
  EXPECT_LT(worst, 16);
}

TEST_F(ToolImageIo, BadFilesGiveMessagesAndLeaveNothingBehind) {
  std::string error;
  Image image;
  EXPECT_FALSE(ReadImage(Path("missing.png"), &image, &error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;

  WriteBytes("text.png", {'h', 'e', 'l', 'l', 'o'});
  EXPECT_FALSE(ReadImage(Path("text.png"), &image, &error));
  EXPECT_NE(error.find("neither a PNG nor a JPEG"), std::string::npos) << error;

  // Cut-off and damaged files of both kinds.
  ASSERT_TRUE(WriteImage(Path("good.png"), Picture(40, 30, false), 92, &error));
  ASSERT_TRUE(WriteImage(Path("good.jpg"), Picture(40, 30, false), 92, &error));
  std::vector<uint8_t> png = ReadBytes("good.png"), jpg = ReadBytes("good.jpg");
  WriteBytes("cut.png", std::vector<uint8_t>(png.begin(), png.begin() + png.size() / 2));
  WriteBytes("cut.jpg", std::vector<uint8_t>(jpg.begin(), jpg.begin() + jpg.size() / 2));
  std::vector<uint8_t> bad_png = png;
  bad_png[bad_png.size() / 2] ^= 0x5A;  // a CRC no longer matches
  WriteBytes("bad.png", bad_png);
  EXPECT_FALSE(ReadImage(Path("cut.png"), &image, &error));
  EXPECT_NE(error.find("corrupt PNG"), std::string::npos) << error;
#if !defined(_WIN32)  // the Windows build's PNG decoder does not verify checksums
  EXPECT_FALSE(ReadImage(Path("bad.png"), &image, &error));
  EXPECT_NE(error.find("corrupt PNG"), std::string::npos) << error;
#endif
  EXPECT_FALSE(ReadImage(Path("cut.jpg"), &image, &error));
  EXPECT_NE(error.find("corrupt JPEG"), std::string::npos) << error;

  const size_t before = FileCount();
  EXPECT_FALSE(WriteImage(Path("out.bmp"), Picture(4, 4, false), 92, &error));
  EXPECT_NE(error.find(".png, .jpg or .jpeg"), std::string::npos) << error;
  EXPECT_FALSE(WriteImage(Path("no/such/dir.png"), Picture(4, 4, false), 92, &error));
  EXPECT_EQ(FileCount(), before);
}

TEST(ToolImageGrey, GreyPicturesKeepTheirValues) {
  Image image;
  image.width = 256;
  image.height = 1;
  for (int v = 0; v < 256; ++v) {
    image.bgra.insert(image.bgra.end(), {uint8_t(v), uint8_t(v), uint8_t(v), 255});
  }
  const std::vector<uint8_t> grey = GreyOf(image);
  for (int v = 0; v < 256; ++v) EXPECT_EQ(grey[size_t(v)], v);
  // Pure red, green and blue by their weights: (77 * 255 + 128) >> 8 = 77, 149, 29.
  image.width = 3;
  image.bgra = {0, 0, 255, 255, 0, 255, 0, 255, 255, 0, 0, 255};
  EXPECT_EQ(GreyOf(image), (std::vector<uint8_t>{77, 149, 29}));
}

}  // namespace
}  // namespace VantyxTool
