#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "plan_fixture.h"

// What monitors get to see of groups.

namespace e2e {
namespace {

using host_test::ReadFile;
using host_test::WriteFile;
using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int kOk = 0;
constexpr int kWarning = 1;
constexpr int kCritical = 2;
constexpr int kUnknown = 3;

class MonitoringTest : public PlanTest {
 protected:
  // Expects that result, on one line, of a check with these options.
  static std::string Check(int grade, std::vector<std::string> options) {
    SCOPED_TRACE(testing::PrintToString(options));
    options.insert(options.begin(), {"status", "--check"});
    const Result result = Run(options);
    EXPECT_EQ(result.code, grade) << result.out << result.err;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << result.out;
    return result.out;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, MonitoringTest, testing::Values("directory"),
                         MonitoringTest::NameOf);

TEST_P(MonitoringTest, ACheckIsOneLineAndAnExitCode) {
  EXPECT_THAT(Check(kOk, {}), StartsWith("DRGROUP OK - 0 groups, 0 targets, 0 volumes"));
  MakeGroup();
  EXPECT_THAT(Check(kOk, {}), StartsWith("DRGROUP OK - 1 group, 3 targets, 1 volume |"));
  EXPECT_THAT(Check(kCritical, {"--max-age", "1h"}),
              HasSubstr("group \"g\" has no group snapshot"));
  EXPECT_THAT(Check(kCritical, {"--max-lag", "1h"}), HasSubstr("\"lun\": it is not protected"));
  TakeSnapshot();
  RunWell({"protect", "g", "--volume", "v2"});
  EXPECT_THAT(Check(kWarning, {"g"}), HasSubstr("\"lun\": no snapshot has arrived yet"));
  RunWell({"sync", "g"});
  EXPECT_THAT(Check(kOk, {"g", "--max-age", "1h", "--max-lag", "2h", "--min-free", "1%"}),
              AllOf(StartsWith("DRGROUP OK - 1 group, 3 targets, 2 volumes | 'g age'="),
                    HasSubstr("s;;3600 'g lag'="), HasSubstr("s;;7200 'v1 free'="),
                    HasSubstr(" 'v2 free'=")));
  EXPECT_THAT(Check(kCritical, {"--min-free", "1000T"}), HasSubstr("less than 1000T"));
  RunWell({"failover", "g", "--yes"});
  EXPECT_THAT(Check(kWarning, {}), HasSubstr("it is failed over, and nothing is replicated"));
}

TEST_P(MonitoringTest, ACheckTellsInItsOwnFormWhatItCannotFindOut) {
  EXPECT_THAT(Check(kUnknown, {"nobody"}), StartsWith("DRGROUP UNKNOWN - "));
  EXPECT_THAT(Check(kUnknown, {"--max-age", "soon"}), HasSubstr("\"soon\" is no duration"));
  EXPECT_THAT(Check(kUnknown, {"--max-lag", "1y"}), HasSubstr("\"1y\" is no duration"));
  EXPECT_THAT(Check(kUnknown, {"--min-free", "101%"}), HasSubstr("\"101%\" is no room"));
  EXPECT_THAT(Check(kUnknown, {"--min-free", "much"}), HasSubstr("\"much\" is no room"));
  RunBadly(kUsage, {"status", "--max-age", "1h"}, {"--max-age", "give --check"});
  MakeGroup();
  WriteFile(GroupDirectory("g") + "/drgroup.db", "spoilt");
  EXPECT_THAT(Check(kUnknown, {}), HasSubstr("group \"g\""));
  const Json::Value json = Run({"status", "--check", "--json"}).Json();
  EXPECT_EQ(json["grade"], "UNKNOWN");
  EXPECT_EQ(json["findings"][0]["grade"], "UNKNOWN");
  EXPECT_THAT(json["line"].asString(), StartsWith("DRGROUP UNKNOWN - "));
}

TEST_P(MonitoringTest, ACopyThatIsOutOfReachIsCritical) {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  std::filesystem::rename(Root() + "/v2", Root() + "/away");
  EXPECT_THAT(Check(kCritical, {"g"}), HasSubstr("out of reach"));
  std::filesystem::rename(Root() + "/away", Root() + "/v2");
  Check(kOk, {"g"});
}

// The format: each metric has its two comments once, before its samples, which stand together.
TEST_P(MonitoringTest, MetricsAreInTheFormatThatIsScraped) {
  MakeGroup();
  TakeSnapshot();
  RunWell({"protect", "g", "--volume", "v2"});
  RunWell({"sync", "g"});
  const std::string text = RunWell({"metrics"}).out;
  EXPECT_THAT(text, EndsWith("\n"));
  EXPECT_THAT(text, Not(HasSubstr("\n\n")));
  std::istringstream lines(text);
  std::set<std::string> seen;
  std::string current;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("# HELP ")) {
      current = line.substr(7, line.find(' ', 7) - 7);
      EXPECT_TRUE(seen.insert(current).second) << current;
      EXPECT_THAT(current, StartsWith("drgroup_"));
    } else if (line.starts_with("# TYPE ")) {
      EXPECT_EQ(line, "# TYPE " + current + " gauge");
    } else {
      EXPECT_EQ(line.substr(0, line.find_first_of("{ ")), current);
      EXPECT_EQ(line.substr(line.rfind(' ') + 1).find_first_not_of("0123456789."),
                std::string::npos);
    }
  }
  EXPECT_THAT(seen, Contains("drgroup_group_snapshot_timestamp_seconds"));
  EXPECT_THAT(text, HasSubstr("drgroup_group_targets{group=\"g\"} 3\n"));
  EXPECT_THAT(text, HasSubstr("drgroup_plan_problem{group=\"g\",target=\"lun\",working=\"lun\","
                              "replica=\"lun-dr\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("drgroup_plan_arrived_timestamp_seconds{group=\"g\",target=\"lun\""));
  EXPECT_THAT(text, HasSubstr("drgroup_volume_usable{volume=\"v2\"} 1\n"));
}

TEST_P(MonitoringTest, MetricsReplaceAFileAsAWholeOrLeaveIt) {
  MakeGroup();
  const std::string path = Root() + "/drgroup.prom";
  WriteFile(path, "old\n");
  RunWell({"metrics", "g", "--output", path});
  EXPECT_THAT(ReadFile(path), HasSubstr("drgroup_group_readable{group=\"g\"} 1\n"));
  RunBadly(kFailed, {"metrics", "--output", Root() + "/nowhere/x"}, {"cannot write", "nowhere/x"});
  RunBadly(kNotFound, {"metrics", "nobody"}, {"\"nobody\""});
  EXPECT_THAT(RunWell({"metrics", "--json"}).Json()["metrics"].asString(),
              HasSubstr("drgroup_group_readable{group=\"g\"} 1\n"));
}

}  // namespace
}  // namespace e2e
