// A host for any effect the effect table knows: renders one raw BGRA frame from a file and
// writes the result as raw bytes.
//
//   effect_frame EFFECT WIDTHxHEIGHT IN.raw OUT.raw [option=value ...]
//
// Options are the command line's (`vantyx apply EFFECT --help`), written name=value; the rest
// keep their defaults. The table decides between the basic and the full call, and fills the
// record; the runner creates the engine and the effect and makes the call through the public
// header. This is the whole of a host, short of reading pictures.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "effect_table.h"
#include "options.h"
#include "runner.h"

using namespace VantyxTool;

namespace {

int Fail(const std::string& message) {
  std::fprintf(stderr, "effect_frame: %s\n", message.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return Fail("usage: effect_frame EFFECT WxH IN.raw OUT.raw [option=value ...]");
  ApplyRequest request;
  request.effect = FindEffect(argv[1]);
  if (!request.effect) return Fail(std::string("unknown effect '") + argv[1] + "'");
  const EffectSpec& effect = *request.effect;
  int width = 0, height = 0;
  if (std::sscanf(argv[2], "%dx%d", &width, &height) != 2 || width < 1 || height < 1) {
    return Fail(std::string("not a frame size: ") + argv[2]);
  }
  request.given.assign(effect.option_count, false);
  request.values.assign(effect.option_count, 0.0);
  request.texts.assign(effect.option_count, std::string());
  for (int i = 5; i < argc; ++i) {
    const std::string arg = argv[i];
    const size_t eq = arg.find('=');
    const int32_t index = eq == std::string::npos ? -1 : FindOption(effect, arg.substr(0, eq));
    if (index < 0) return Fail("not an option of " + std::string(effect.name) + ": " + arg);
    const OptionSpec& option = effect.options[index];
    const std::string text = arg.substr(eq + 1);
    const int32_t choice = FindChoice(option, text);
    char* end = nullptr;
    const double value = choice >= 0 ? choice : std::strtod(text.c_str(), &end);
    if (choice < 0 && (text.empty() || *end != '\0')) return Fail("not a value: " + arg);
    const std::string problem = RangeProblem(option, value);
    if (!problem.empty()) return Fail(arg + " " + problem);
    request.given[index] = true;
    request.values[index] = value;
    request.texts[index] = text;
  }
  request.full_call = NeedsFullCall(effect, request.given);

  std::ifstream in(argv[3], std::ios::binary);
  const std::vector<uint8_t> src{std::istreambuf_iterator<char>(in), {}};
  if (src.size() != size_t(width) * size_t(height) * 4) {
    return Fail(std::string(argv[3]) + " does not hold one " + argv[2] + " BGRA frame");
  }
  FrameSettings settings;
  std::string error;
  EffectRunner runner;
  if (!SettingsForFrame(request, width, height, &settings, &error) ||
      !runner.Open(effect, &error) || !runner.SetImageSize(width, height, &error)) {
    return Fail(error);
  }
  std::vector<uint8_t> dst(src.size());
  if (!runner.Render(settings, src.data(), nullptr, dst.data(), &error)) return Fail(error);
  std::ofstream out(argv[4], std::ios::binary);
  out.write(reinterpret_cast<const char*>(dst.data()), std::streamsize(dst.size()));
  return out.flush() ? 0 : Fail(std::string("cannot write ") + argv[4]);
}
