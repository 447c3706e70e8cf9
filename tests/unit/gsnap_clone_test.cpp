#include <vreldrgroup/snapshot/gsnap_clone.h>

#include <set>

#include "catalogue_test.h"
#include "record_values.h"

namespace unit {
namespace {

using testing::Pair;
using testing::StartsWith;
using VrelDR::Target;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::Operation::GsnapshotClone;

// A group "g1" with one group snapshot of three targets, recorded in another order than that of
// their identifiers, whose clones are c1, c2 and c3.
class GsnapClone : public CatalogueTest {
 protected:
  GsnapClone() {
    MakeCatalogue();
    AddMeta(id, 10);
    AddSnap("t2", 3, "s2", id);
    AddSnap("t1", 1, "s1", id);
    AddSnap("t3", 2, "s3", id);
    for (const std::string number : {"1", "2", "3"}) {
      host.targets["t" + number].snapshots = {Snap(10, "s" + number)};
      host.targets["t" + number].next_clones = {"c" + number};
    }
  }

  std::string ErrText() const { return ToString(operation.GetErr()); }

  // The last argument of a call, as it was written down.
  static std::string LastArgument(const std::string& call) {
    const std::size_t start = call.rfind(", ") + 2;
    return call.substr(start, call.size() - 1 - start);
  }

  std::vector<std::string> CallsOf(const std::string& name) const {
    std::vector<std::string> found;
    for (const std::string& call : host.calls) {
      if (call.rfind(name + "(", 0) == 0) found.push_back(call);
    }
    return found;
  }

  // The calls from the first that is about removing clones.
  std::vector<std::string> Cleanup() const {
    std::vector<std::string> found;
    for (const std::string& call : host.calls) {
      if (!found.empty() || call.rfind("ProtectedTargetManager(", 0) == 0) found.push_back(call);
    }
    return found;
  }

  static auto Failed(const std::string& message) {
    return Err(kUnit, "CloneTargetSnapshots", message);
  }
  static auto NotRemoved(const std::string& message) {
    return Warn(kUnit, "DeleteClonedTargets", message);
  }

  static constexpr char kUnit[] = "snapshot/gsnap_clone";
  const std::string id = "g1-gsnap-10";
  const std::string third = R"({"target":{"target_id":"t3","target_type":2},"tsnap_id":"s3"})";
  const std::string noThird = "Target snapshot[" + third + "] is not existed";
  const Target t1{"t1", 1};
  const Target t2{"t2", 3};
  const Target t3{"t3", 2};
  GsnapshotClone operation{id};
};

TEST_F(GsnapClone, StartsWithCodeZeroAndNoClones) {
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(operation.GetClones(), IsEmpty());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapClone, ClonesEveryTargetInTheOrderOfTheRows) {
  EXPECT_TRUE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(
      host.calls,
      ElementsAre("TargetOperation(t2, 3)", "IsExisted(t2)", "IsSnapshotExisted(t2, s2)",
                  StartsWith("CloneSnapshot(t2, s2, "), "TargetOperation(t1, 1)", "IsExisted(t1)",
                  "IsSnapshotExisted(t1, s1)", StartsWith("CloneSnapshot(t1, s1, "),
                  "TargetOperation(t3, 2)", "IsExisted(t3)", "IsSnapshotExisted(t3, s3)",
                  StartsWith("CloneSnapshot(t3, s3, ")));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, "c1"), Pair(t2, "c2"), Pair(t3, "c3")));
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapClone, GivesEveryCloneAFreshUuid) {
  EXPECT_TRUE(operation.Run());
  std::set<std::string> uuids;
  for (const std::string& call : CallsOf("CloneSnapshot")) uuids.insert(LastArgument(call));
  EXPECT_THAT(uuids, testing::SizeIs(3));
  EXPECT_THAT(uuids, testing::Each(testing::MatchesRegex(
                         "[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}")));
}

TEST_F(GsnapClone, WritesNothingToTheCatalogueAndReachesItThroughTheGroupsLink) {
  for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
    for (const char* change : {"INSERT", "UPDATE", "DELETE"}) Refuse(change, table);
  }
  const std::vector<std::string> rows = SnapRows();
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(core.Of({"SqliteDB"}),
              testing::Each("SqliteDB(" + linkPath + ", 20, vreldrcore_db_info)"));
  EXPECT_THAT(core.OfPlatform(), IsEmpty());
  EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-10'|'g1'|10|1"));
  EXPECT_EQ(SnapRows(), rows);
  EXPECT_THAT(ReplicaRows(), IsEmpty());
}

TEST_F(GsnapClone, DoesNotLookAtTheStatus) {
  Db().Exec("UPDATE gsnap_meta SET status = 2");
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(operation.GetClones(), testing::SizeIs(3));
}

TEST_F(GsnapClone, OfAGroupSnapshotWithoutTargetSnapshotsSucceedsWithoutClones) {
  AddMeta("g1-gsnap-20", 20);
  GsnapshotClone empty("g1-gsnap-20");
  EXPECT_TRUE(empty.Run());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":0})");
  EXPECT_THAT(empty.GetClones(), IsEmpty());
  EXPECT_TRUE(empty.CloneTargetSnapshots({}));
  EXPECT_TRUE(empty.DeleteClonedTargets());
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST_F(GsnapClone, KeepsTheLastCloneOfATargetThatIsThereTwice) {
  AddSnap("t1", 1, "s9", id);
  host.targets["t1"].snapshots.push_back(Snap(10, "s9"));
  host.targets["t1"].next_clones.push_back("c9");
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, "c9"), Pair(t2, "c2"), Pair(t3, "c3")));
}

TEST_F(GsnapClone, DoesNotAskWhetherATargetSnapshotIsValid) {
  const Target odd("t1", 7);
  EXPECT_TRUE(operation.CloneTargetSnapshots({TargetSnapshot(odd, "s1")}));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(odd, "c1")));
  EXPECT_FALSE(operation.CloneTargetSnapshots({TargetSnapshot(Target(), "")}));
  EXPECT_EQ(operation.GetErrCode(), 634);
}

TEST_F(GsnapClone, RefusesAnEmptyIdentifierAndTouchesNothing) {
  GsnapshotClone empty("");
  EXPECT_FALSE(empty.Run());
  EXPECT_EQ(ToString(empty.GetErr()), R"({"err_code":401})");
  EXPECT_THAT(log.Entries(), ElementsAre(Err(kUnit, "Run", "Empty gsnapId")));
  EXPECT_THAT(host.calls, IsEmpty());
  EXPECT_THAT(core.Of({"SqliteDB"}), IsEmpty());
}

TEST_F(GsnapClone, RefusesAnUnknownGroupSnapshotInTheWordsOfTheQuery) {
  GsnapshotClone unknown("g1-gsnap-%s");
  EXPECT_FALSE(unknown.Run());
  EXPECT_EQ(ToString(unknown.GetErr()), R"({"err_code":622})");
  EXPECT_THAT(log.Entries(), ElementsAre(Err("snapshot/gsnap_op.cpp", "GsnapshotGet",
                                             "gsnap[g1-gsnap-%s] is not existed")));
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapClone, RefusesATimeThatIsNotPositiveInSilence) {
  for (const char* time : {"0", "4294967296", "NULL"}) {
    Db().Exec(std::string("UPDATE gsnap_meta SET gsnap_time = ") + time);
    GsnapshotClone clone(id);
    EXPECT_FALSE(clone.Run()) << time;
    EXPECT_EQ(ToString(clone.GetErr()), R"({"err_code":622})") << time;
  }
  EXPECT_THAT(log.Entries(), IsEmpty());
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapClone, RefusesAGroupSnapshotWhoseReplicasCannotBeRead) {
  Db().Exec("DROP TABLE target_replica_list");
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(host.calls, IsEmpty());
}

TEST_F(GsnapClone, OfAMissingTargetGives634WithoutAMessage) {
  host.targets["t2"].exists = false;
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":634})");
  EXPECT_THAT(host.calls, ElementsAre("TargetOperation(t2, 3)", "IsExisted(t2)"));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed(R"(Target[{"target_id":"t2","target_type":3}] is not existed)")));
  EXPECT_THAT(operation.GetClones(), IsEmpty());
}

TEST_F(GsnapClone, OfATargetThatCannotBeAskedGives634Too) {
  host.targets["t2"].failures["IsExisted"] = {411, Json("\"gone\"")};
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":634})");
}

TEST_F(GsnapClone, OfAMissingThirdSnapshotRemovesTheTwoClonesInTheOrderOfTheTargets) {
  host.targets["t3"].snapshots.clear();
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(CallsOf("CloneSnapshot"), testing::SizeIs(2));
  EXPECT_THAT(Cleanup(), ElementsAre("ProtectedTargetManager(1)", "DeleteTarget(1, c1)",
                                     "~ProtectedTargetManager(1)", "ProtectedTargetManager(3)",
                                     "DeleteTarget(3, c2)", "~ProtectedTargetManager(3)"));
  EXPECT_THAT(log.Entries(), ElementsAre(Failed(noThird)));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, ""), Pair(t2, "")));
  EXPECT_EQ(host.targets.count("c1") + host.targets.count("c2"), 0U);
}

TEST_F(GsnapClone, ThatFailsOnTheThirdTargetCopiesItsErrorAndRemovesTheOthers) {
  host.targets["t3"].failures["CloneSnapshot"] = {412, Json(R"({"why":"%s"})")};
  host.code_texts[412] = "only the target knows";
  EXPECT_FALSE(operation.Run());
  const std::string err = R"({"err_code":412,"err_msg":{"why":"%s"}})";
  EXPECT_EQ(ErrText(), err);
  EXPECT_THAT(log.Entries(), ElementsAre(Failed("Faled to clone target snapshot[" + third +
                                                "] with err[" + err + "]")));
  EXPECT_THAT(CallsOf("DeleteTarget"), ElementsAre("DeleteTarget(1, c1)", "DeleteTarget(3, c2)"));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, ""), Pair(t2, "")));
}

TEST_F(GsnapClone, ThatFailsOnTheFirstTargetHasNothingToRemoveAndAsksNoOther) {
  host.targets["t2"].failures["CloneSnapshot"] = {412, {}};
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":412})");
  EXPECT_THAT(host.calls,
              ElementsAre("TargetOperation(t2, 3)", "IsExisted(t2)", "IsSnapshotExisted(t2, s2)",
                          StartsWith("CloneSnapshot(t2, s2, ")));
  EXPECT_THAT(operation.GetClones(), IsEmpty());
}

TEST_F(GsnapClone, KeepsTheIdentifierOfACloneThatCannotBeRemovedAndGoesOn) {
  host.targets["t3"].snapshots.clear();
  host.targets["c1"].failures["DeleteTarget"] = {416, Json("\"busy\"")};
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(Cleanup(), ElementsAre("ProtectedTargetManager(1)", "DeleteTarget(1, c1)",
                                     "~ProtectedTargetManager(1)", "ProtectedTargetManager(3)",
                                     "DeleteTarget(3, c2)", "~ProtectedTargetManager(3)"));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed(noThird), NotRemoved("Failed to delete cloned lun [c1]")));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, "c1"), Pair(t2, "")));
}

TEST_F(GsnapClone, LeavesACloneInPlaceThatHasNoManagerAndGoesOn) {
  host.targets["t3"].snapshots.clear();
  host.targets["t1"].next_clones = {"c%s"};
  host.without_manager = {1};
  EXPECT_FALSE(operation.Run());
  EXPECT_EQ(ErrText(), R"({"err_code":622})");
  EXPECT_THAT(Cleanup(), ElementsAre("ProtectedTargetManager(1)", "ProtectedTargetManager(3)",
                                     "DeleteTarget(3, c2)", "~ProtectedTargetManager(3)"));
  EXPECT_THAT(log.Entries(),
              ElementsAre(Failed(noThird), NotRemoved("Null pointer to delete lun [c%s]")));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, "c%s"), Pair(t2, "")));
  EXPECT_TRUE(host.targets["c%s"].exists);
}

TEST_F(GsnapClone, NamesTheKindOfEveryCloneThatStays) {
  EXPECT_TRUE(operation.Run());
  host.without_manager = {1, 2, 3};
  host.calls.clear();
  EXPECT_TRUE(operation.DeleteClonedTargets());
  EXPECT_THAT(log.Entries(), ElementsAre(NotRemoved("Null pointer to delete lun [c1]"),
                                         NotRemoved("Null pointer to delete guest [c2]"),
                                         NotRemoved("Null pointer to delete share [c3]")));
  EXPECT_THAT(host.calls, ElementsAre("ProtectedTargetManager(1)", "ProtectedTargetManager(3)",
                                      "ProtectedTargetManager(2)"));
}

TEST_F(GsnapClone, ReportsNoFailureOfRemovingAndLeavesTheErrorAsItWas) {
  EXPECT_TRUE(operation.Run());
  host.targets["c2"].failures["DeleteTarget"] = {416, Json("\"busy\"")};
  EXPECT_TRUE(operation.DeleteClonedTargets());
  EXPECT_EQ(ErrText(), R"({"err_code":0})");
  EXPECT_THAT(log.Entries(), ElementsAre(NotRemoved("Failed to delete cloned guest [c2]")));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, ""), Pair(t2, "c2"), Pair(t3, "")));
}

TEST_F(GsnapClone, RemovesNoCloneTwice) {
  EXPECT_TRUE(operation.Run());
  host.targets["c2"].failures["DeleteTarget"] = {416, {}};
  EXPECT_TRUE(operation.DeleteClonedTargets());
  host.targets["c2"].failures.clear();
  host.calls.clear();
  EXPECT_TRUE(operation.DeleteClonedTargets());
  EXPECT_THAT(host.calls, ElementsAre("ProtectedTargetManager(3)", "DeleteTarget(3, c2)",
                                      "~ProtectedTargetManager(3)"));
  EXPECT_THAT(operation.GetClones(), ElementsAre(Pair(t1, ""), Pair(t2, ""), Pair(t3, "")));
}

TEST_F(GsnapClone, HasCode407WhileItRuns) {
  std::vector<std::string> errs;
  operation.SetErr(1, Json("\"old\""));
  host.on_call = [&](const std::string&) { errs.push_back(ErrText()); };
  EXPECT_TRUE(operation.Run());
  EXPECT_THAT(errs, testing::SizeIs(12));
  EXPECT_THAT(errs, testing::Each(R"({"err_code":407})"));
}

}  // namespace
}  // namespace unit
