// Feeds a harness every input kept under the directories (or files) given,
// as the ordinary test suite does: an input that once crashed stays fixed.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "harness.hpp"

int main(int argc, char **argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
        if (entry.is_regular_file()) inputs.push_back(entry.path());
      }
    } else {
      inputs.emplace_back(argv[i]);
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "no inputs to replay\n");
    return 1;
  }
  for (const auto &path : inputs) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return 0;
}
