#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "private_namespace.h"

extern "C" void VreldrTestKillPoint(const char* step, std::size_t stepLength);

namespace {

// What is set for a program that a test starts.
void Append(const char* name, const std::string& value) {
  const char* before = std::getenv(name);
  setenv(name, (before == nullptr ? value : std::string(before) + ":" + value).c_str(), 1);
}

}  // namespace

// Every test runs with a /var of the program's own that holds the database script and nothing else.
// What it starts has the library that the kill and fail points ask, as this program itself has it.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  std::string why;
  if (!test_support::EnterPrivateNamespace(why) || !test_support::InstallDbScript(why)) {
    std::fprintf(stderr, "no test was run: %s\n", why.c_str());
    return 1;
  }
  VreldrTestKillPoint("", 0);  // a library that nobody calls would not be linked
  Append("LD_PRELOAD", TEST_POINTS);
  // The address sanitizer wants to be loaded first, and does not need to be.
  Append("ASAN_OPTIONS", "verify_asan_link_order=0");
  return RUN_ALL_TESTS();
}
