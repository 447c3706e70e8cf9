#include <cstdlib>
#include <filesystem>

#include "plan_fixture.h"
#include "vreldr/target_operation.h"

// Deleting the snapshots of a target that no group snapshot has.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class TargetPruneTest : public PlanTest {
 protected:
  // A snapshot of the lun that no catalogue records; its identifier.
  static std::string TakeAlone(const std::string& description) {
    const VrelDR::TargetOperation operation(VrelDR::Target("lun", VrelDR::kTargetLun));
    std::string id;
    EXPECT_TRUE(operation.TakeSnapshot({description, false, false, ""}, id)) << operation.GetErr();
    return id;
  }
  static std::set<std::string> Snapshots(const std::string& target) {
    const VrelDR::TargetOperation operation(VrelDR::Target(target, VrelDR::kTargetLun));
    std::set<std::string> ids;
    EXPECT_TRUE(operation.ListSnapshotIds(ids)) << operation.GetErr();
    return ids;
  }
};

INSTANTIATE_TEST_SUITE_P(Volumes, TargetPruneTest, testing::Values("directory"),
                         FileSystemsTest::NameOf);

TEST_P(TargetPruneTest, OnlyWhatNothingRecordsOrNeedsGoes) {
  MakeProtected();
  const std::string shipped = TakeSnapshot();
  RunWell({"snapshot", "ship", shipped});
  // Waits to be sent, and its group snapshot is forgotten.
  RunSql(DatabaseOf("g"), "DELETE FROM gsnap_meta");
  RunSql(DatabaseOf("g"), "DELETE FROM target_snap_list");
  TakeSnapshot();
  const std::string kept = TakeAlone("somebody's own");
  const std::set<std::string> before = Snapshots("lun");
  const std::string left = TakeAlone("");

  const Json::Value dry = RunWell({"target", "prune", "lun", "--dry-run", "--json"}).Json();
  EXPECT_THAT(dry.getMemberNames(),
              ElementsAre("deleted_count", "dry_run", "snapshots", "target_id"));
  ASSERT_EQ(dry["snapshots"].size(), 1U);
  EXPECT_EQ(dry["snapshots"][0]["tsnap_id"], left);
  EXPECT_EQ(Snapshots("lun").count(left), 1U);
  RunUnasked({"target", "prune", "lun"}, {"1 snapshot of target \"lun\""}, {left});
  const Json::Value done = RunWell({"target", "prune", "lun", "--yes", "--json"}).Json();
  EXPECT_EQ(done["deleted_count"], 1);
  EXPECT_EQ(Snapshots("lun"), before);
  EXPECT_EQ(RunWell({"target", "prune", "lun", "--yes", "--json"}).Json()["deleted_count"], 0);

  RunWell({"target", "prune", "lun", "--snapshot", kept, "--yes"});
  EXPECT_EQ(Snapshots("lun").count(kept), 0U);
}

TEST_P(TargetPruneTest, WhatIsRecordedHeldOrUnknownIsRefusedByName) {
  MakeProtected();
  const std::string id = TakeSnapshot();
  const std::string recorded = fs::path(SnapshotPaths(id).at("lun")).parent_path().filename();
  const std::set<std::string> before = Snapshots("lun");
  RunBadly(kRefused, {"target", "prune", "lun", "--yes", "--snapshot", recorded},
           {recorded, "belongs to a group snapshot"});
  RunBadly(kNotFound, {"target", "prune", "lun", "--yes", "--snapshot", "nothing"}, {"nothing"});
  RunBadly(kNotFound, {"target", "prune", "nobody", "--yes"}, {"\"nobody\""});
  for (const std::string target : {"lun", "lun-dr"}) {
    for (const std::string& each : Snapshots(target)) {
      if (each == recorded) continue;
      RunBadly(kRefused, {"target", "prune", target, "--yes", "--snapshot", each}, {each, "plan"});
    }
  }
  EXPECT_EQ(Snapshots("lun"), before);
}

TEST_P(TargetPruneTest, WhatACatalogueRecordsToWhichNoLinkLeadsDoesNotGo) {
  MakeProtected();
  TakeSnapshot();
  const std::set<std::string> before = Snapshots("lun");
  fs::remove_all(LinkDirectory("g"));
  RunBadly(kCatalogue, {"target", "prune", "lun", "--yes"},
           {fs::path(DatabaseOf("g")).parent_path(), "group \"g\"", "create the group again"});
  EXPECT_EQ(Snapshots("lun"), before);
  RunWell({"group", "create", "g", "--target", "lun", "--target", "share", "--target", "guest"});
  RunWell({"target", "prune", "lun", "--yes"});
  EXPECT_EQ(Snapshots("lun"), before);
}

TEST_P(TargetPruneTest, ALockedSnapshotDoesNotGo) {
  MakeGroup();
  const std::string left = TakeAlone("");
  RunSql(Root() + "/state/replica.db", "UPDATE snapshots SET is_locked = 1");
  EXPECT_EQ(RunWell({"target", "prune", "lun", "--yes", "--json"}).Json()["deleted_count"], 0);
  RunBadly(kRefused, {"target", "prune", "lun", "--yes", "--snapshot", left}, {left, "is locked"});
  EXPECT_EQ(Snapshots("lun").count(left), 1U);
}

TEST_P(TargetPruneTest, NothingGoesWhileAGroupOfTheTargetIsWorkedOnOrACatalogueIsAway) {
  MakeGroup();
  const std::string left = TakeAlone("");
  RunWell({"group", "create", "h", "--target", "share"});
  fs::rename(DatabaseOf("h"), Root() + "/away");
  for (const char* dry : {"--yes", "--dry-run"}) {
    RunBadly(kCatalogue, {"target", "prune", "lun", dry}, {DatabaseOf("h")});
  }
  fs::rename(Root() + "/away", DatabaseOf("h"));
  Process holder({"flock", "-x", LinkDirectory("g"), "-c", "echo ready; exec sleep 30"});
  while (holder.OutputSoFar().empty()) {
  }
  RunBadly(kBusy, {"target", "prune", "lun", "--yes"}, {"\"g\"", "another process"});
  kill(holder.Id(), SIGKILL);
  EXPECT_EQ(Snapshots("lun").count(left), 1U);
}

}  // namespace
}  // namespace e2e
