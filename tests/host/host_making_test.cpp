#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "base/kill_point.h"
#include "earlier_records.h"
#include "host_fixture.h"
#include "tree.h"
#include "vreldr/host_state.h"
#include "vreldr/volume.h"
#include "vreldrcore/sqlite_db.h"
#include "vreldrnode/dr_node.h"

// When a host is made, and when something is missing instead.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using VrelDR::HostState;
using VrelDR::Target;
using VrelDR::TargetManager;
using VrelDR::TargetOperation;
using VrelDRNode::DRNode;

class HostMakingTest : public HostTest {
 protected:
  std::string Records() const { return StateDir() + "/replica.db"; }
  std::string Identity() const { return StateDir() + "/node_id"; }

  static bool Create(const std::string& id) {
    VrelDR::TargetSpec spec;
    spec.target = Target(id, VrelDR::kTargetShare);
    spec.volume = "v1";
    return TargetManager().Create(spec);
  }

  // What there is of the state directory. Who opens records has files beside them meanwhile.
  std::map<std::string, std::string> StateTree() const {
    if (!fs::exists(StateDir())) return {};
    auto tree = DescribeTree(StateDir());
    tree.erase(".");
    return tree;
  }

  // Expects every call, reading or writing, to fail like this and to change nothing.
  void ExpectNoHost(const std::vector<std::string>& parts) const {
    const auto before = StateTree();
    const auto volume = DescribeTree(VolumePath());
    const TargetOperation operation(Target("share1", 2));
    std::set<std::string> snapIds;
    EXPECT_FALSE(operation.IsExisted());
    ExpectError(operation, VrelDR::kErrStore, parts);
    EXPECT_FALSE(operation.ListSnapshotIds(snapIds));
    ExpectError(operation, VrelDR::kErrStore, parts);
    const TargetManager manager;
    VrelDR::TargetEntry entry;
    std::vector<VrelDR::TargetEntry> entries;
    EXPECT_FALSE(manager.Get("share1", entry));
    ExpectError(manager, VrelDR::kErrStore, parts);
    EXPECT_FALSE(manager.List(entries));
    ExpectError(manager, VrelDR::kErrStore, parts);
    VrelDR::TargetSpec spec;
    spec.target = Target("new", VrelDR::kTargetShare);
    spec.volume = "v1";
    EXPECT_FALSE(manager.Create(spec));
    ExpectError(manager, VrelDR::kErrStore, parts);
    EXPECT_EQ(StateTree(), before);
    EXPECT_EQ(DescribeTree(VolumePath()), volume);
  }

  void WriteVolumes(const std::string& more) const {
    WriteFile(Root() + "/config.json",
              R"({"state_dir": ")" + StateDir() +
                  R"(", "volumes": [{"name": "v1", "engine": "local", "path": ")" + VolumePath() +
                  R"("}, )" + more + "]}");
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& each : fs::directory_iterator(StateDir())) {
      if (each.path().filename() != "replica.db-journal") names.push_back(each.path().filename());
    }
    return names;
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, HostMakingTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(HostMakingTest, TheFirstTargetMakesIdentityAndRecordsTogether) {
  MakeShare("share1");
  EXPECT_THAT(Names(), UnorderedElementsAre("node_id", "replica.db", "locks"));
  EXPECT_EQ(DRNode::getLocalNodeId() + "\n", ReadFile(Identity()));
}

TEST_P(HostMakingTest, AskingForTheNodeMakesBothToo) {
  EXPECT_EQ(DRNode::getLocalNodeId().size(), 36U);
  EXPECT_THAT(Names(), UnorderedElementsAre("node_id", "replica.db"));
}

TEST_P(HostMakingTest, ReadingCallsMakeNothing) {
  const TargetManager manager;
  std::vector<VrelDR::TargetEntry> entries;
  EXPECT_TRUE(manager.List(entries)) << manager.GetErr();
  EXPECT_TRUE(entries.empty());
  const TargetOperation operation(Target("share1", 2));
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrStore, {StateDir(), "no host yet"});
  EXPECT_FALSE(fs::exists(StateDir()));
  EXPECT_TRUE(fs::is_empty(VolumePath()));
}

TEST_P(HostMakingTest, RecordsThatAreEmptyOrNoDatabaseAreNamedAndLeftAlone) {
  MakeShare("share1");
  const std::string good = ReadFile(Records());
  fs::remove(Records() + "-journal");
  for (const std::string& text : {std::string(), std::string("x"), std::string(8192, 'j')}) {
    SCOPED_TRACE(text.substr(0, 1));
    WriteFile(Records(), text);
    ExpectNoHost({Records(), "host init"});
  }
  WriteFile(Records(), "");
  ASSERT_EQ(RunProgram({"sqlite3", Records(), "CREATE TABLE other (x)"}), 0);
  ExpectNoHost({Records(), "not a database of records"});
  WriteFile(Records(), good);
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
}

TEST_P(HostMakingTest, MissingRecordsOrIdentityBesideTheOtherAreNamedAndNotMadeAnew) {
  MakeShare("share1");
  for (const std::string& path : {Records(), Identity()}) {
    const std::string good = ReadFile(path);
    fs::remove(path);
    ExpectNoHost({path, "is missing", "host init"});
    EXPECT_EQ(DRNode::getLocalNodeId(), "");
    EXPECT_FALSE(fs::exists(path));
    WriteFile(path, good);
    EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
  }
}

TEST_P(HostMakingTest, ADamagedIdentityIsNamedAndLeftAlone) {
  MakeShare("share1");
  for (const char* text : {"", "half", "not-hexadecimal-at-all-but-36-bytes!\n"}) {
    WriteFile(Identity(), text);
    ExpectNoHost({Identity(), "damaged", "host init"});
  }
}

TEST_P(HostMakingTest, LocksAloneAreATrace) {
  fs::create_directories(StateDir() + "/plan-locks");
  ExpectNoHost({StateDir(), "locks", "host init"});
}

TEST_P(HostMakingTest, AWrongStateDirectoryIsNotMadeBesideVolumesThatAreInUse) {
  MakeShare("share1");
  fs::rename(StateDir(), Root() + "/moved");
  ExpectNoHost({StateDir(), "\"v1\"", "state_dir", "host init"});
  EXPECT_EQ(DRNode::getLocalNodeId(), "");
  EXPECT_FALSE(fs::exists(StateDir()));
  fs::rename(Root() + "/moved", StateDir());
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
}

TEST_P(HostMakingTest, AVolumeThatCannotBeAskedIsATrace) {
  WriteVolumes(R"({"name": "v2", "engine": "local", "path": ")" + Root() + R"(/gone"})");
  ExpectNoHost({"\"v2\"", "cannot be asked", Root() + "/gone", "mount"});
  EXPECT_FALSE(fs::exists(StateDir()));
  fs::create_directory(Root() + "/gone");
  MakeShare("share1");
}

TEST_P(HostMakingTest, WhatIsInTheStateDirectoryBesidesIsNoTrace) {
  fs::create_directory(StateDir());
  WriteFile(StateDir() + "/notes", "of the administrator");
  MakeShare("share1");
}

TEST_P(HostMakingTest, AMakingThatWasKilledIsGoneOnWith) {
  for (const std::string_view point :
       {VrelDR::kHostMarked, VrelDR::kHostIdentified, VrelDR::kHostRecordsBuilt,
        VrelDR::kHostRecorded, VrelDR::kHostMade}) {
    SCOPED_TRACE(std::string(point));
    fs::remove_all(StateDir());
    const int code = RunInChild({{"VRELDR_KILL_POINT", std::string(point)}},
                                [] { return Create("share1") ? 0 : 1; });
    EXPECT_EQ(code, 128 + SIGKILL);
    const std::string id = fs::exists(Identity()) ? ReadFile(Identity()) : "";
    const TargetManager manager;
    std::vector<VrelDR::TargetEntry> entries;
    EXPECT_TRUE(manager.List(entries)) << manager.GetErr();
    EXPECT_THAT(Names(), UnorderedElementsAre("node_id", "replica.db"));
    if (!id.empty()) {
      EXPECT_EQ(ReadFile(Identity()), id);
    }
  }
  MakeShare("share1");
}

TEST_P(HostMakingTest, ProcessesThatStartAtOnceMakeOneHost) {
  constexpr int kProcesses = 6;
  for (int round = 0; round < 5; ++round) {
    fs::remove_all(StateDir());
    fs::remove_all(VolumePath());
    fs::create_directory(VolumePath());
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      children.push_back(StartChild({}, [i] {
        if (i % 3 == 0) return DRNode::getLocalNodeId().empty() ? 1 : 0;
        VrelDR::TargetSpec spec;
        spec.target = Target("share" + std::to_string(i), VrelDR::kTargetShare);
        spec.volume = "v1";
        const TargetManager manager;
        if (manager.Create(spec)) return 0;
        std::cerr << manager.GetErr();
        return 1;
      }));
    }
    for (const pid_t pid : children) EXPECT_EQ(WaitFor(pid), 0) << "round " << round;
    const TargetManager manager;
    std::vector<VrelDR::TargetEntry> entries;
    EXPECT_TRUE(manager.List(entries)) << manager.GetErr();
    EXPECT_EQ(entries.size(), 4U);
    for (const auto& each : entries) EXPECT_TRUE(each.is_existed) << each.target.GetId();
  }
}

TEST_P(HostMakingTest, ItIsNotMadeWhereThereIsOne) {
  MakeShare("share1");
  const auto before = StateTree();
  const HostState state;
  std::string nodeId;
  std::vector<std::string> moved;
  EXPECT_FALSE(state.Make(nodeId, moved));
  ExpectError(state, VrelDR::kErrExists, {StateDir(), DRNode::getLocalNodeId()});
  EXPECT_EQ(StateTree(), before);
}

TEST_P(HostMakingTest, ItCanBeMadeBeforeAnythingElse) {
  const HostState state;
  VrelDR::HostExamination found;
  ASSERT_TRUE(state.Examine(found)) << state.GetErr();
  EXPECT_FALSE(found.is_made);
  EXPECT_THAT(found.traces, IsEmpty());
  EXPECT_FALSE(fs::exists(StateDir()));
  std::string nodeId;
  std::vector<std::string> moved;
  ASSERT_TRUE(state.Make(nodeId, moved)) << state.GetErr();
  EXPECT_EQ(DRNode::getLocalNodeId(), nodeId);
  EXPECT_THAT(moved, IsEmpty());
  ASSERT_TRUE(state.Examine(found)) << state.GetErr();
  EXPECT_TRUE(found.is_made);
}

TEST_P(HostMakingTest, DamagedRecordsAreMovedAsideAndTheIdentityKept) {
  MakeShare("share1");
  const std::string id = DRNode::getLocalNodeId();
  const std::string junk(8192, 'j');
  const HostState state;
  for (int number = 1; number <= 2; ++number) {
    WriteFile(Records(), junk);
    VrelDR::HostExamination found;
    ASSERT_TRUE(state.Examine(found)) << state.GetErr();
    EXPECT_THAT(found.damaged, testing::Contains(Records()));
    EXPECT_EQ(found.node_id, id);
    std::string nodeId;
    std::vector<std::string> moved;
    ASSERT_TRUE(state.Make(nodeId, moved)) << state.GetErr();
    EXPECT_EQ(nodeId, id);
    const std::string aside = Records() + ".damaged-" + std::to_string(number);
    EXPECT_THAT(moved, testing::Contains(aside));
    EXPECT_EQ(ReadFile(aside), junk);
    // The volume is this node's, so that it goes on being used.
    MakeShare("new" + std::to_string(number));
  }
}

// The log of records with a target "lost", as it is while somebody has them open.
class LostLogTest : public HostMakingTest {
 protected:
  void SetUp() override {
    HostMakingTest::SetUp();
    MakeShare("share1");
    const VrelDRCore::SqliteDB records(Records(), 20, "vreldrcore_db_info");
    ASSERT_TRUE(records.Exec("INSERT INTO targets VALUES ('lost', 2, 'v1', 2, 0, 'lost')"));
    log_ = ReadFile(Records() + "-wal");
    ASSERT_THAT(log_, HasSubstr("lost"));
  }
  void LoseRecords() const {
    fs::remove(Records());
    WriteFile(Records() + "-wal", log_);
  }
  void ExpectNothingOfLost() const {
    EXPECT_EQ(ReadFile(Records() + "-wal.damaged-1"), log_);
    std::vector<VrelDR::TargetEntry> entries;
    const TargetManager manager;
    EXPECT_TRUE(manager.List(entries)) << manager.GetErr();
    EXPECT_THAT(entries, IsEmpty());
  }

 private:
  std::string log_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, LostLogTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(LostLogTest, TheLogOfLostRecordsIsNotTakenForThatOfNewOnes) {
  LoseRecords();
  fs::remove(Identity());
  ExpectNoHost({Records(), "are missing", "host init"});
  const HostState state;
  std::string nodeId;
  std::vector<std::string> moved;
  ASSERT_TRUE(state.Make(nodeId, moved)) << state.GetErr();
  EXPECT_THAT(moved, ElementsAre(Records() + "-wal.damaged-1"));
  ExpectNothingOfLost();
}

TEST_P(LostLogTest, ItIsNotTakenForThatOfRecordsWhoseMakingWasInterruptedEither) {
  LoseRecords();
  WriteFile(StateDir() + "/host.making", "");
  MakeShare("new");
  ASSERT_TRUE(TargetManager().Remove("new", false));
  ExpectNothingOfLost();
}

TEST_P(HostMakingTest, RecordsAreWholeByThemselvesWhenNobodyHasThemOpen) {
  MakeShare("share1");
  Take("share1");
  for (const char* each : {"-wal", "-shm", "-journal"}) {
    EXPECT_FALSE(fs::exists(Records() + each)) << each;
  }
  EXPECT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(VrelDR::kTakeDone)}},
                       [] { return Take("share1").snap_id.empty() ? 1 : 0; }),
            128 + SIGKILL);
  EXPECT_TRUE(fs::exists(Records() + "-wal")) << "so that this shows nothing";
  EXPECT_THAT(ListIds("share1"), testing::SizeIs(2));
  EXPECT_FALSE(fs::exists(Records() + "-wal"));
}

// As on a file system through which processes cannot share memory.
TEST_P(HostMakingTest, WhereALogCannotBeTheRecordsHaveAJournal) {
  fs::create_directories(Records() + ".new-shm/in the way");
  MakeShare("share1");
  const auto snapshot = Take("share1");
  EXPECT_TRUE(fs::exists(Records() + "-journal"));
  EXPECT_FALSE(fs::exists(Records() + "-wal"));
  EXPECT_THAT(ListIds("share1"), ElementsAre(snapshot.snap_id));
}

TEST_P(HostMakingTest, ALostIdentityIsFoundAgainOnTheVolumes) {
  MakeShare("share1");
  const std::string id = DRNode::getLocalNodeId();
  WriteFile(Identity(), "damaged");
  const HostState state;
  std::string nodeId;
  std::vector<std::string> moved;
  ASSERT_TRUE(state.Make(nodeId, moved)) << state.GetErr();
  EXPECT_EQ(nodeId, id);
  EXPECT_THAT(moved, ElementsAre(Identity() + ".damaged-1"));
  EXPECT_TRUE(TargetOperation(Target("share1", 2)).IsExisted());
}

TEST_P(HostMakingTest, AMakingInSpiteOfTracesThatWasKilledIsFinishedByTheNext) {
  for (const std::string_view point :
       {VrelDR::kHostMarked, VrelDR::kHostMovedAside, VrelDR::kHostIdentified,
        VrelDR::kHostRecordsBuilt, VrelDR::kHostRecorded, VrelDR::kHostMade}) {
    SCOPED_TRACE(std::string(point));
    fs::remove_all(StateDir());
    fs::create_directories(StateDir() + "/locks");
    WriteFile(Records(), "x");
    WriteFile(Identity(), "y");
    const auto make = [] {
      const HostState state;
      std::string nodeId;
      std::vector<std::string> moved;
      return state.Make(nodeId, moved) || state.GetErrCode() == VrelDR::kErrExists ? 0 : 1;
    };
    EXPECT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(point)}}, make), 128 + SIGKILL);
    EXPECT_EQ(make(), 0);
    EXPECT_THAT(Names(), UnorderedElementsAre("node_id", "replica.db", "locks",
                                              "replica.db.damaged-1", "node_id.damaged-1"));
    std::vector<VrelDR::TargetEntry> entries;
    EXPECT_TRUE(TargetManager().List(entries));
    EXPECT_EQ(ReadFile(Records() + ".damaged-1"), "x");
    EXPECT_EQ(ReadFile(Identity() + ".damaged-1"), "y");
  }
}

TEST_P(HostMakingTest, RecordsOfALaterVersionAreNeverMovedAside) {
  MakeShare("share1");
  ASSERT_EQ(RunProgram({"sqlite3", Records(), "UPDATE vreldrcore_db_info SET value = '99'"}), 0);
  const HostState state;
  std::string nodeId;
  std::vector<std::string> moved;
  EXPECT_FALSE(state.Make(nodeId, moved));
  ExpectError(state, VrelDR::kErrUnsupported, {Records(), "version"});
  EXPECT_THAT(moved, IsEmpty());
}

// A host of an earlier version, with one target and one snapshot of it.
class EarlierHostTest : public HostMakingTest {
 protected:
  void SetUp() override {
    HostMakingTest::SetUp();
    MakeShare("share1");
    Take("share1");
  }
  void Sql(const std::string& sql) const {
    ASSERT_EQ(RunProgram({"sqlite3", "-bail", Records(), sql}), 0) << sql;
  }
  void MakeEarlier(int version) const {
    Sql(std::string("BEGIN;") + test_support::kBackToVersion6 + "COMMIT");
    if (version == 6) return;
    Sql("BEGIN; ALTER TABLE cuts DROP COLUMN is_made_by_sync;"
        "UPDATE vreldrcore_db_info SET value = '5'; COMMIT");
    if (version == 5) return;
    Sql("BEGIN; DROP TABLE cuts; DROP INDEX snapshots_by_cut;"
        "ALTER TABLE snapshots DROP COLUMN cut_id;"
        "UPDATE vreldrcore_db_info SET value = '4'; COMMIT");
    if (version == 4) return;
    Sql("BEGIN; ALTER TABLE targets DROP COLUMN locator;"
        "UPDATE vreldrcore_db_info SET value = '3'; COMMIT");
    if (version == 3) return;
    Sql("BEGIN; DROP TABLE volumes; ALTER TABLE snapshots DROP COLUMN maker;"
        "ALTER TABLE plans DROP COLUMN hand_failures;"
        "UPDATE vreldrcore_db_info SET value = '2'; COMMIT");
    if (version == 1) {
      Sql("BEGIN; DROP TABLE plans; DROP TABLE retention_locks; DROP TABLE pending_snaps;"
          "DROP TABLE sync_reports; DROP TABLE journals;"
          "UPDATE vreldrcore_db_info SET value = '1'; COMMIT");
    }
    fs::remove(Identity());
    fs::remove(VolumePath() + "/.vreldr/volume.json");
  }
  // Of exactly the newest version.
  void ExpectUpgraded() const {
    EXPECT_THAT(ListIds("share1"), testing::SizeIs(1));
    Sql("CREATE TEMP TABLE t (ok CHECK (ok)); "
        "INSERT INTO t SELECT value = 8 FROM vreldrcore_db_info WHERE key = 'version';"
        "INSERT INTO t SELECT cut_id = '' FROM snapshots;"
        "INSERT INTO t SELECT count(is_made_by_sync) = 0 FROM cuts;"
        "INSERT INTO t SELECT locator = id FROM targets;"
        "INSERT INTO t SELECT maker = '' FROM snapshots;"
        "INSERT INTO t SELECT count(hand_failures) = 0 FROM plans;"
        "INSERT INTO t SELECT count(*) = 1 FROM volumes;"
        "INSERT INTO t SELECT count(*) = 0 FROM journals");
    EXPECT_EQ(DRNode::getLocalNodeId().size(), 36U);
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, EarlierHostTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(EarlierHostTest, RecordsOfEveryEarlierVersionAreUpgraded) {
  for (const int version : {1, 2, 3, 4, 5, 6}) {
    MakeEarlier(version);
    ExpectUpgraded();
  }
}

TEST_P(EarlierHostTest, AnUpgradeThatWasKilledHasHappenedOrHasNot) {
  for (const int version : {1, 2, 3, 4, 5, 6}) {
    for (const std::string_view point : {VrelDR::kRecordsUpgrading, VrelDR::kRecordsUpgraded}) {
      SCOPED_TRACE(std::to_string(version) + " " + std::string(point));
      MakeEarlier(version);
      const int code = RunInChild({{"VRELDR_KILL_POINT", std::string(point)}},
                                  [] { return ListIds("share1").size() == 1 ? 0 : 1; });
      EXPECT_EQ(code, 128 + SIGKILL);
      ExpectUpgraded();
    }
  }
}

TEST_P(EarlierHostTest, ProcessesThatUpgradeAtOnceAllSucceed) {
  for (const int version : {1, 2, 3, 4, 5, 6, 1, 2, 3, 4, 5, 6}) {
    MakeEarlier(version);
    std::vector<pid_t> children;
    for (int i = 0; i < 6; ++i) {
      children.push_back(StartChild({}, [] { return ListIds("share1").size() == 1 ? 0 : 1; }));
    }
    for (const pid_t pid : children) EXPECT_EQ(WaitFor(pid), 0);
    ExpectUpgraded();
  }
}

TEST_P(EarlierHostTest, AnIdentityThatPlansKnowIsMissedInAnEarlierVersionToo) {
  MakeEarlier(2);
  Sql("INSERT INTO plans (id, state, solution_type, target_type, protected_target_id, "
      "dr_target_id, schedule_mode, main_site, dr_site, status, direction) "
      "VALUES ('p', 2, 1, 1, 'share1', 'x', 1, 'n', 'n', 1, 1)");
  ExpectNoHost({Identity(), "is missing", "host init"});
}

}  // namespace
}  // namespace host_test
