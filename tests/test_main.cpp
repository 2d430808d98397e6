/// \file test_main.cpp
/// Runs the tests. Beside GoogleTest's own arguments it takes
///   --file=tensor/tarvu_reverse_c_test.cpp   only the tests of this file (path below tests/); none is a failure
///   --outside=a_test.cpp,b_test.cpp          only the tests of no file listed; none is fine
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace {

/// Whether `path` names the file `file`, given below tests/.
bool is_file(std::string_view path, std::string_view file) {
  std::string const tail = "tests/" + std::string(file);
  if (!path.ends_with(tail)) return false;
  path.remove_suffix(tail.size());
  return path.empty() || path.ends_with('/');
}

bool is_in_list(std::string_view path, std::string_view files) {
  while (!files.empty()) {
    size_t const comma = files.find(',');
    if (is_file(path, files.substr(0, comma))) return true;
    files = comma == std::string_view::npos ? std::string_view() : files.substr(comma + 1);
  }
  return false;
}

/// A filter for the tests whose files are in the list (or are not), or an empty text if there are none.
std::string filter_of_files(std::string_view files, bool in_list) {
  std::string filter;
  testing::UnitTest const &all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    testing::TestSuite const &suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      testing::TestInfo const &test = *suite.GetTestInfo(j);
      if (is_in_list(test.file(), files) != in_list) continue;
      if (!filter.empty()) filter += ':';
      filter.append(suite.name()).append(".").append(test.name());
    }
  }
  return filter;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    std::string_view const argument = argv[i];
    bool const in_list = argument.starts_with("--file=");
    if (!in_list && !argument.starts_with("--outside=")) {
      std::fprintf(stderr, "%s: unknown argument\n", argv[i]);
      return 2;
    }
    std::string const filter = filter_of_files(argument.substr(argument.find('=') + 1), in_list);
    if (filter.empty()) {
      std::printf("no tests: %s\n", argv[i]);
      return in_list ? 1 : 0;
    }
    GTEST_FLAG_SET(filter, filter);
  }
  return RUN_ALL_TESTS();
}
