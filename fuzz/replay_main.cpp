// Replays inputs through a fuzz target's entry without libFuzzer: every file named on the
// command line, and every file of the directories named, in name order. A broken invariant
// aborts, so an input that once failed keeps failing the test until the fault is mended.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path named(argv[i]);
    if (std::filesystem::is_directory(named)) {
      for (const auto& entry : std::filesystem::directory_iterator(named))
        if (entry.is_regular_file()) inputs.push_back(entry.path());
    } else {
      inputs.push_back(named);
    }
  }
  std::sort(inputs.begin(), inputs.end());
  for (const std::filesystem::path& input : inputs) {
    std::ifstream file(input, std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "cannot read %s\n", input.c_str());
      return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return inputs.empty() ? 1 : 0;
}
