// Runs inputs through the frame fuzzer's target once each, without libFuzzer: the seed corpus
// as a regression check under any compiler, or one crash file under a debugger.
//   vantyx_frame_replay FILE_OR_FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void RunFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  // An owned copy of exactly the file's size, so a read past the input is caught too.
  std::vector<uint8_t> exact(bytes);
  LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(arg)) {
      for (const auto& entry : std::filesystem::directory_iterator(arg))
        if (entry.is_regular_file()) files.push_back(entry.path());
      std::sort(files.begin(), files.end());
    } else {
      files.push_back(arg);
    }
    for (const auto& f : files) {
      RunFile(f);
      ++count;
    }
  }
  std::printf("replayed %zu inputs, all passed\n", count);
  return count > 0 ? 0 : 1;
}
