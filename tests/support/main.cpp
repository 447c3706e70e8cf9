#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "private_namespace.h"

// Every test runs with a /var of the program's own that holds the database script and nothing else.
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
  return RUN_ALL_TESTS();
}
