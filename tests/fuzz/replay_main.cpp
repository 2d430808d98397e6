// Feeds files to a family's fuzz target without libFuzzer: tarvu_fuzz_replay FAMILY FILE|DIRECTORY...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/operators.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_of(int count, char **paths) {
  std::vector<fs::path> files;
  for (int i = 0; i < count; ++i) {
    if (!fs::is_directory(paths[i])) {
      files.emplace_back(paths[i]);
      continue;
    }
    for (const fs::directory_entry &entry : fs::directory_iterator(paths[i])) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char **argv) {
  const fuzz::Family *family = argc < 3 ? nullptr : fuzz::family_of_name(argv[1]);
  if (family == nullptr) {
    std::fputs("usage: tarvu_fuzz_replay FAMILY FILE|DIRECTORY...\n", stderr);
    return 2;
  }
  const std::vector<fs::path> files = files_of(argc - 2, argv + 2);
  for (const fs::path &path : files) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", path.c_str());
      return 2;
    }
    std::fprintf(stderr, "%s\n", path.c_str());
    fuzz::run_input(*family, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
  }
  if (files.empty()) {
    std::fputs("no files to replay\n", stderr);
    return 2;
  }
  std::fprintf(stderr, "%zu inputs, no difference\n", files.size());
  return 0;
}
