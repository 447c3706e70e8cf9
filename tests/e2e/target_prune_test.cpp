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
  // How a snapshot is listed.
  static Json::Value Listed(const std::string& snapId, const std::string& target = "lun") {
    const Json::Value report = RunWell({"target", "snap-list", target, "--json"}).Json();
    for (const Json::Value& each : report["snapshots"]) {
      if (each["tsnap_id"] == snapId) return each;
    }
    return {};
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
           {recorded, "is recorded in group snapshot \"" + id + "\""});
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

TEST_P(TargetPruneTest, EachSnapshotIsListedWithWhatClaimsIt) {
  MakeProtected();
  const std::string id = TakeSnapshot();
  const std::string recorded = fs::path(SnapshotPaths(id).at("lun")).parent_path().filename();
  const std::string left = TakeAlone("");
  const std::string own = TakeAlone("somebody's\nown");
  const Json::Value report = RunWell({"target", "snap-list", "lun", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(),
              ElementsAre("snapshot_count", "snapshots", "target_id", "unclaimed_count"));
  EXPECT_EQ(report["unclaimed_count"], 2);
  EXPECT_EQ(report["snapshot_count"].asUInt64(), Snapshots("lun").size());
  EXPECT_EQ(report["snapshots"].size(), Snapshots("lun").size());
  EXPECT_THAT(report["snapshots"][0].getMemberNames(),
              ElementsAre("claim_text", "claims", "description", "state", "time", "tsnap_id"));
  EXPECT_EQ(Listed(left)["state"], "orphaned");
  EXPECT_EQ(Listed(own)["state"], "single");
  EXPECT_EQ(Listed(recorded)["state"], "claimed");
  EXPECT_THAT(Listed(recorded)["claims"][0].asString(), HasSubstr(id));
  for (const std::string target : {"lun", "lun-dr"}) {
    for (const std::string& each : Snapshots(target)) {
      if (each == recorded || each == left || each == own) continue;
      EXPECT_THAT(Listed(each, target)["claim_text"].asString(), HasSubstr("plan")) << each;
    }
  }
  const std::string text = RunWell({"target", "snap-list", "lun", "--unclaimed"}).out;
  EXPECT_THAT(text, testing::AllOf(HasSubstr(left), HasSubstr(own), HasSubstr("somebody's\\nown"),
                                   testing::Not(HasSubstr(recorded))));

  // Of another group, and locked.
  RunWell({"group", "create", "h", "--target", "lun"});
  RunSql(Root() + "/state/replica.db",
         "UPDATE snapshots SET is_locked = 1 WHERE snap_id = '" + left + "' AND target_id = 'lun'");
  EXPECT_EQ(Listed(left)["claims"][0], "is locked");
  fs::rename(DatabaseOf("h"), Root() + "/away");
  const Result blind = RunWell({"target", "snap-list", "lun", "--unclaimed", "--json"});
  EXPECT_EQ(blind.Json()["snapshots"].size(), 0U);
  EXPECT_THAT(blind.Json()["warnings"][0].asString(), HasSubstr(DatabaseOf("h")));
  RunBadly(kNotFound, {"target", "snap-list", "nobody"}, {"\"nobody\""});
}

TEST_P(TargetPruneTest, WhatNothingClaimsIsDroppedByNameOrAsOrphaned) {
  MakeProtected();
  const std::string id = TakeSnapshot();
  const std::string recorded = fs::path(SnapshotPaths(id).at("lun")).parent_path().filename();
  const std::set<std::string> before = Snapshots("lun");
  const std::string first = TakeAlone("");
  const std::string second = TakeAlone("second");
  const std::string third = TakeAlone("third");
  RunBadly(kUsage, {"target", "snap-remove", "lun", "--yes"}, {"--orphaned"});
  RunBadly(kUsage, {"target", "snap-remove", "lun", first, "--orphaned"}, {"--orphaned"});
  RunBadly(kNotFound, {"target", "snap-remove", "lun", first, "none", "--yes"}, {"\"none\""});
  RunBadly(kRefused, {"target", "snap-remove", "lun", second, recorded, "--yes"},
           {recorded, "is recorded in group snapshot \"" + id + "\"", "snapshot delete"});
  for (const std::string& each : before) {
    if (each == recorded) continue;
    RunBadly(kRefused, {"target", "snap-remove", "lun", each, "--yes"}, {each, "plan"});
  }
  RunUnasked({"target", "snap-remove", "lun", second}, {"1 snapshot of target \"lun\""}, {second});
  const Json::Value dry =
      RunWell({"target", "snap-remove", "lun", "--orphaned", "--dry-run", "--json"}).Json();
  ASSERT_EQ(dry["snapshots"].size(), 1U);
  EXPECT_EQ(dry["snapshots"][0]["tsnap_id"], first);
  EXPECT_EQ(Snapshots("lun").size(), before.size() + 3);
  RunWell({"target", "snap-remove", "lun", second, third, "--yes"});
  EXPECT_EQ(Snapshots("lun").size(), before.size() + 1);
  RunWell({"target", "snap-remove", "lun", "--orphaned", "--yes"});
  EXPECT_EQ(Snapshots("lun"), before);

  const std::string other = TakeAlone("other");
  RunWell({"group", "create", "h", "--target", "share"});
  fs::rename(DatabaseOf("h"), Root() + "/away");
  RunBadly(kCatalogue, {"target", "snap-remove", "lun", other, "--yes"}, {DatabaseOf("h")});
  EXPECT_EQ(Snapshots("lun").count(other), 1U);
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
