// vantyx: the command-line host of the Vantyx library. It reaches the engine only through the
// public header, like any other host.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.h"

#ifndef VANTYX_TOOL_VERSION
#define VANTYX_TOOL_VERSION "unknown"
#endif

int main(int argc, char** argv) {
  using namespace VantyxTool;
  const std::vector<std::string> args(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (args.empty()) {
    std::fputs(MainHelp().c_str(), stderr);
    return kExitUsage;
  }
  const std::string& command = args[0];
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "--help" || command == "-h" || command == "help") {
    std::fputs(MainHelp().c_str(), stdout);
    return kExitOk;
  }
  if (command == "--version") {
    std::printf("vantyx %s\n", VANTYX_TOOL_VERSION);
    return kExitOk;
  }
  if (command == "apply") return RunApplyCommand(rest);
  if (command == "demo") return RunDemoCommand(rest, argc > 0 ? argv[0] : nullptr);
  std::fprintf(stderr, "vantyx: unknown command '%s' (see 'vantyx --help')\n", command.c_str());
  return kExitUsage;
}
