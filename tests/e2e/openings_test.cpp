#include <algorithm>
#include <filesystem>
#include <map>

#include "plan_fixture.h"
#include "traced_child.h"

// How often one call of the tool opens the host's files, whatever the number of targets.

namespace e2e {
namespace {

class OpeningsTest : public PlanTest {
 protected:
  // Expects the tool to work, to read the configuration once, and each of its threads to open the
  // records at most twice.
  void ExpectOpenedOnce(std::vector<std::string> words) const {
    SCOPED_TRACE(testing::PrintToString(words));
    words.insert(words.begin(), DRGROUPCTL);
    // What looks for leaks at the end does not work while it is traced.
    const Child::Trace trace =
        Child::RunTraced(words, {{"ASAN_OPTIONS", "detect_leaks=0:verify_asan_link_order=0"}},
                         [](long) { return false; });
    EXPECT_EQ(trace.outcome.code, kDone) << trace.outcome.err;
    int configuration = 0;
    std::map<pid_t, int> records;
    for (const auto& [thread, path] : trace.opened) {
      if (std::filesystem::path(path) == std::getenv("VRELDR_CONFIG")) ++configuration;
      if (std::filesystem::path(path) == Root() + "/state/replica.db") ++records[thread];
    }
    EXPECT_EQ(configuration, 1);
    EXPECT_FALSE(records.empty());
    for (const auto& [thread, count] : records) EXPECT_LE(count, 2);
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, OpeningsTest, testing::Values("directory"), OpeningsTest::NameOf);

TEST_P(OpeningsTest, ACallOpensTheHostOnceWhateverTheNumberOfTargets) {
  MakeGroup();
  ExpectOpenedOnce({"target", "list"});
  ExpectOpenedOnce({"volume", "list"});
  ExpectOpenedOnce({"snapshot", "create", "g"});
  ExpectOpenedOnce({"protect", "g", "--volume", "v2"});
  ExpectOpenedOnce({"plan", "list"});
  ExpectOpenedOnce({"sync", "g"});
  ExpectOpenedOnce({"status", "g"});
  ExpectOpenedOnce({"switchover", "g", "--dry-run"});
  ExpectOpenedOnce({"switchover", "g"});
  ExpectOpenedOnce({"failover", "g", "--yes"});
  ExpectOpenedOnce({"reprotect", "g"});
  ExpectOpenedOnce({"unprotect", "g", "--yes"});
}

}  // namespace
}  // namespace e2e
