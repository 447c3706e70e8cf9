#include <unistd.h>

#include <csignal>
#include <thread>

#include "plan_fixture.h"

// The last snapshots of a switchover are one cut, so that a failover right after it goes to them.

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;
using Words = std::vector<std::string>;

class SwitchoverCutTest : public PlanTest {
 protected:
  // What a failover would go to.
  static Json::Value Planned() { return RunWell({"failover", "g", "--dry-run", "--json"}).Json(); }
  // The cut of the last snapshots that arrived, when these are of one that is as good as it was
  // held to be.
  static void ExpectCut(const Json::Value& planned, const std::string& grade) {
    EXPECT_EQ(planned["cut_grade"], grade);
    EXPECT_EQ(planned["cut_method"], "sources made unwritable");
    EXPECT_EQ(planned["cut_members"], 3);
    for (const Json::Value& each : planned["takeover"]) {
      EXPECT_EQ(each["newer_snapshots"].size(), 0U) << each;
    }
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, SwitchoverCutTest,
                         testing::ValuesIn(LongSuiteOn({"ext4", "xfs", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(SwitchoverCutTest, AFailoverRightAfterASwitchoverGoesToItsBytes) {
  MakeProtected();
  ChangeMain();
  const auto wanted = MainContents();
  RunWell({"switchover", "g"});
  ExpectCut(Planned(), "writers were held");
  ChangeCopies();
  const Result asked = Run({"failover", "g"});
  EXPECT_EQ(asked.code, kRefused);
  EXPECT_THAT(asked.out, Not(HasSubstr("instant")));
  RunWell({"failover", "g", "--yes"});
  EXPECT_EQ(States(), (Words{"failed over lun", "failed over share", "failed over guest"}));
  EXPECT_EQ(MainContents(), wanted);
}

TEST_P(SwitchoverCutTest, EachSwitchoverIsACutOfItsOwn) {
  MakeProtected();
  RunWell({"switchover", "g"});
  const Json::Value first = Planned();
  ChangeCopies();
  const auto wanted = CopyContents();
  RunWell({"switchover", "g"});
  const Json::Value second = Planned();
  ExpectCut(second, "writers were held");
  EXPECT_NE(second["cut_id"], first["cut_id"]);
  ChangeMain();
  RunWell({"failover", "g", "--yes"});
  EXPECT_EQ(CopyContents(), wanted);
}

TEST_P(SwitchoverCutTest, OneThatIsTakenBackCountsOnlyWhereAllReplicasHaveItsCut) {
  MakeProtected();
  const std::string synced = Planned()["cut_id"].asString();
  ChangeMain();
  // The way back sends snapshots that are of no cut.
  EXPECT_NE(RunFailingAt("ship@guest-dr", {"switchover", "g"}).code, kDone);
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(Planned()["cut_id"], synced);
  // Of this one all have theirs, which were taken while no source could be written.
  EXPECT_NE(RunFailingAt("promote@guest-dr", {"switchover", "g"}).code, kDone);
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(Planned()["cut_grade"], "writers were held");
  EXPECT_NE(Planned()["cut_id"], synced);
  RunWell({"switchover", "g"});
  ExpectCut(Planned(), "writers were held");
}

TEST_P(SwitchoverCutTest, OneThatWasKilledGoesOnWithItsCutWhichIsOfNoInstantThen) {
  MakeProtected();
  for (const char* step : {"switchover.turned", "switchover.demoted"}) {
    SCOPED_TRACE(step);
    ChangeMain();
    ASSERT_TRUE(RunKilledAt(step, {"switchover", "g"}));
    const bool hasTurnedOne = std::string(step) == "switchover.turned";
    if (hasTurnedOne) {
      // Failed over, each would only change sides.
      for (const Words& how : {Words{"--yes"}, Words{"--force", "--yes"}, Words{"--dry-run"}}) {
        Words words{"failover", "g"};
        words.insert(words.end(), how.begin(), how.end());
        RunBadly(kRefused, words,
                 {"on the main side \"share\", \"guest\" works", "on the DR side \"lun-dr\"",
                  "drgroupctl switchover g", "plan promote lun"});
      }
    }
    host_test::WriteFile(TargetPaths().at("guest") + "/guest.img", "written meanwhile");
    const auto wanted = MainContents();
    RunWell({"switchover", "g"});
    EXPECT_EQ(States(), AllTurned());
    ExpectCut(Planned(), hasTurnedOne ? "not of one instant" : "writers were held");
    EXPECT_EQ(CopyContents().at("guest"), wanted.at("guest"));
    RunWell({"switchover", "g"});
    ExpectCut(Planned(), "writers were held");
  }
}

TEST_P(SwitchoverCutTest, GoingOnOverWhoCanWriteIsNoInstant) {
  if (geteuid() != 0) GTEST_SKIP() << "looking into other processes needs root";
  MakeProtected();
  const std::string path = TargetPaths().at("share") + "/one";
  const std::string command = "exec 3>>" + path + "; echo ready; exec sleep 600";
  Process writer({"/bin/sh", "-c", command});
  while (writer.OutputSoFar().empty()) std::this_thread::yield();
  EXPECT_EQ(Run({"switchover", "g"}).code, kRefused);
  RunWell({"switchover", "g", "--in-use"});
  kill(writer.Id(), SIGKILL);
  ExpectCut(Planned(), "not of one instant");
  const Result asked = Run({"failover", "g"});
  EXPECT_THAT(asked.out, HasSubstr("the snapshots are not of one instant"));
}

}  // namespace
}  // namespace e2e
