#include <algorithm>
#include <csignal>

#include "paused_shipment.h"
#include "plan_fixture.h"

// What goes on beside a sync that sends, and what does not.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class PlanBesideTest : public PlanTest {
 protected:
  // A group that was synced twice, and whose last target takes a while to be sent.
  void MakeSynced() {
    MakeProtected();
    RunWell({"sync", "g"});
    MakeLarge();
  }
  void MakeLarge() {
    ChangeMain();
    std::string bytes(16 << 20, 'x');
    for (std::size_t i = 0; i < bytes.size(); i += 64) bytes[i] = static_cast<char>(i >> 6);
    host_test::WriteFile(TargetPaths().at("guest") + "/guest.img", bytes);
  }
  static std::vector<std::string> SyncOf(const std::string& group) {
    return {DRGROUPCTL, "sync", group};
  }
  static std::string CreateIn(const std::string& group) {
    return RunWell({"snapshot", "create", group, "--json"}).Json()["gsnap_id"].asString();
  }
  void ExpectNothingOnItsWay() const {
    for (const char* volume : {"v1", "v2"}) {
      ExpectNoLeftovers(VolumePath(volume));
      const fs::path incoming = VolumePath(volume) + "/.vreldr/incoming";
      EXPECT_TRUE(!fs::exists(incoming) || fs::is_empty(incoming)) << volume;
    }
  }

 private:
  const SentByPrograms by_programs_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanBesideTest,
                         testing::ValuesIn(LongSuiteOn({"directory", "xfs", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(PlanBesideTest, SnapshotsOfTheGroupComeAndGoWhileASyncSends) {
  const TargetContents first = [this] {
    MakeGroup();
    return MainContents();
  }();
  const std::string old = TakeSnapshot();
  const std::string spare = TakeSnapshot();
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  RunWell({"sync", "g"});
  RunWell({"sync", "g"});
  MakeLarge();
  const TargetContents sent = MainContents();
  Process sync(SyncOf("g"));
  std::string made;
  TargetContents later;
  {
    const PausedShipment paused(sync, "guest-dr");
    ChangeMain();
    later = MainContents();
    made = TakeSnapshot({"--description", "beside"});
    EXPECT_EQ(ReadContents(SnapshotPaths(made)), later);
    RunWell({"snapshot", "edit", made, "--description", "meanwhile"});
    EXPECT_EQ(RunWell({"snapshot", "show", made, "--json"}).Json()["description"], "meanwhile");
    EXPECT_EQ(ReadContents(SnapshotPaths(old)), first);
    RunWell({"snapshot", "delete", spare, "--yes"});
    EXPECT_THAT(ListSnapshots(), Not(Contains(spare)));
    RunWell({"snapshot", "clone", old});
    RunWell({"snapshot", "repair", "g", "--yes"});
    RunWell({"snapshot", "ship", made});
    RunWell({"group", "upgrade", "g"});
    // The first sync's snapshots of all targets go on both sides, and what is being sent stays.
    const Json::Value pruned = RunWell({"snapshot", "prune", "g", "--yes", "--json"}).Json();
    EXPECT_GT(pruned["deleted_count"].asUInt(), 0U);
    RunWell({"status", "g"});
  }
  const Result result = sync.Wait();
  EXPECT_EQ(result.code, kDone) << result.err;
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(LastArrivedContents(), sent);
  EXPECT_EQ(ReadContents(SnapshotPaths(made)), later);
  EXPECT_EQ(ReadContents(SnapshotPaths(old)), first);
  ExpectSameSnapshots();
  ExpectNothingOnItsWay();
  RunWell({"sync", "g"});
  EXPECT_EQ(LastArrivedContents(), later);
  ExpectSameSnapshots();
}

TEST_P(PlanBesideTest, WhatASyncIsInTheWayOfIsRefused) {
  MakeSynced();
  const std::string snapshot = TakeSnapshot();
  const TargetContents sent = MainContents();
  Process sync(SyncOf("g"));
  {
    const PausedShipment paused(sync, "guest-dr");
    const std::vector<std::vector<std::string>> refused = {
        {"sync", "g"},
        {"switchover", "g"},
        {"failover", "g", "--yes"},
        {"failover", "g", "--force", "--yes"},
        {"reprotect", "g"},
        {"protect", "g", "--volume", "v2"},
        {"edit", "g", "--volume", "v2", "--yes"},
        {"unprotect", "g", "--yes"},
        {"action", "run", "sync", "g"},
        {"snapshot", "restore", snapshot, "--yes"},
        {"group", "rename", "g", "h"},
        {"group", "relink", "g", GroupDirectory("g")},
        {"group", "delete", "g", "--force", "--yes"},
        {"group", "quiesce", "g", "--none"}};
    for (const std::vector<std::string>& words : refused) {
      RunBadly(
          kBusy, words,
          {"\"g\"", "another process", "\"drgroupctl stop g\"", "\"guest\" is in sync since 20"});
    }
    // Nothing is changed by these.
    RunWell({"group", "quiesce", "g"});
    EXPECT_EQ(Run({"switchover", "g", "--dry-run"}).code, kBusy);  // by the plan
  }
  EXPECT_EQ(sync.Wait().code, kDone);
  EXPECT_EQ(LastArrivedContents(), sent);
  EXPECT_EQ(MainContents(), sent);
  RunWell({"snapshot", "restore", snapshot, "--yes"});
  RunWell({"group", "rename", "g", "h"});
}

TEST_P(PlanBesideTest, OtherGroupsAreRestoredUnlessTheSyncSendsOneOfTheirTargets) {
  MakeSynced();
  RunWell({"target", "create", "alone", "--volume", "v1", "--type", "share"});
  RunWell({"group", "create", "free", "--target", "alone"});
  RunWell({"group", "create", "common", "--target", "share", "alone"});
  const std::string ofFree = CreateIn("free");
  const std::string ofCommon = CreateIn("common");
  Process sync(SyncOf("g"));
  {
    const PausedShipment paused(sync, "guest-dr");
    RunWell({"snapshot", "restore", ofFree, "--yes"});
    RunBadly(kBusy, {"snapshot", "restore", ofCommon, "--yes"},
             {"group \"g\"", "another process", "\"guest\" is in sync since 20"});
    RunWell({"snapshot", "create", "common"});
    RunWell({"group", "delete", "free", "--force", "--yes"});
  }
  EXPECT_EQ(sync.Wait().code, kDone);
  RunWell({"snapshot", "restore", ofCommon, "--yes"});
  // After a switchover the copies are sent, which are another group's.
  RunWell({"switchover", "g"});
  const std::string ofCopies = CreateIn("gd");
  host_test::WriteFile(TargetPaths().at("guest-dr") + "/guest.img", std::string(16 << 20, 'y'));
  Process back(SyncOf("g"));
  {
    const PausedShipment paused(back, "guest");
    RunBadly(kBusy, {"snapshot", "restore", ofCopies, "--yes"},
             {"group \"g\"", "is in sync since"});
  }
  EXPECT_EQ(back.Wait().code, kDone);
  RunWell({"snapshot", "restore", ofCopies, "--yes"});
}

TEST_P(PlanBesideTest, ASyncThatIsKilledWhileOthersWorkIsFinishedByTheNext) {
  MakeSynced();
  Process sync(SyncOf("g"));
  {
    const PausedShipment paused(sync, "guest-dr");
    ChangeMain();
    TakeSnapshot();
    kill(sync.Id(), SIGKILL);
    EXPECT_EQ(sync.Wait().code, 128 + SIGKILL);
  }
  const TargetContents later = MainContents();
  TakeSnapshot();
  RunWell({"snapshot", "prune", "g", "--yes"});
  RunWell({"sync", "g"});
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(LastArrivedContents(), later);
  ExpectSameSnapshots();
  ExpectNothingOnItsWay();
}

}  // namespace
}  // namespace e2e
