// The tool's commands. Each returns the process exit status: 0 success, 1 a failure while
// working (a file, the effect), 2 a usage error.
#ifndef VANTYX_TOOL_COMMANDS_H
#define VANTYX_TOOL_COMMANDS_H

#include <string>
#include <vector>

namespace VantyxTool {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// `args`: the words after the command name. `self`: argv[0], to find the bundled photos.
int RunApplyCommand(const std::vector<std::string>& args);
int RunDemoCommand(const std::vector<std::string>& args, const char* self);

std::string MainHelp();
std::string DemoHelp();

}  // namespace VantyxTool

#endif  // VANTYX_TOOL_COMMANDS_H
