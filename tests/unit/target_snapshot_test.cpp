#include <gmock/gmock.h>
#include <vreldrcore/json.h>
#include <vreldrgroup/record/target_snapshot.h>

#include <limits>

#include "record_values.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Target;
using VrelDRCore::SqliteValue;
using VrelDRCore::JsonUtil::ToString;
using VrelDRGroup::TargetSnapshot;
using VrelDRGroup::TargetSnapshotRelationship;

TargetSnapshot Snap() {
  return TargetSnapshot(Target("t1", 2), "s1");
}
TargetSnapshotRelationship Related() {
  return TargetSnapshotRelationship(Snap(), "g1-gsnap-5");
}

TEST(TargetSnapshot, KeepsWhatItIsMadeFrom) {
  EXPECT_EQ(Snap().target, Target("t1", 2));
  EXPECT_EQ(Snap().tsnap_id, "s1");
}

TEST(TargetSnapshot, IsValidWithBothIdentifiersAndATypeFromOneToThree) {
  for (const int type : {1, 2, 3}) {
    EXPECT_TRUE(TargetSnapshot(Target("t1", type), "s1").IsValid()) << type;
  }
}

TEST(TargetSnapshot, IsNotValidWithAnyOtherType) {
  for (const int type :
       {0, 4, -1, 257, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_FALSE(TargetSnapshot(Target("t1", type), "s1").IsValid()) << type;
  }
}

TEST(TargetSnapshot, IsNotValidWithoutATargetIdentifier) {
  EXPECT_FALSE(TargetSnapshot(Target("", 1), "s1").IsValid());
}

TEST(TargetSnapshot, IsNotValidWithoutASnapshotIdentifier) {
  EXPECT_FALSE(TargetSnapshot(Target("t1", 1), "").IsValid());
}

TEST(TargetSnapshot, GivesItsTargetAndIdentifierAsJson) {
  EXPECT_EQ(ToString(Snap().ToJson()),
            R"({"target":{"target_id":"t1","target_type":2},"tsnap_id":"s1"})");
}

TEST(TargetSnapshot, GivesAnEmptyRecordAsJsonToo) {
  EXPECT_EQ(ToString(TargetSnapshot(Target(), "").ToJson()),
            R"({"target":{"target_id":"","target_type":0},"tsnap_id":""})");
}

TEST(TargetSnapshot, ReadsBackItsOwnJson) {
  TargetSnapshot read(Target(), "");
  EXPECT_TRUE(read.FromJson(Snap().ToJson()));
  EXPECT_EQ(read.target, Target("t1", 2));
  EXPECT_EQ(read.tsnap_id, "s1");
}

TEST(TargetSnapshot, KeepsItsTargetWhenTheJsonHasNone) {
  TargetSnapshot snap = Snap();
  EXPECT_TRUE(snap.FromJson(Json(R"({"tsnap_id": "s2"})")));
  EXPECT_EQ(snap.target, Target("t1", 2));
  EXPECT_EQ(snap.tsnap_id, "s2");
}

TEST(TargetSnapshot, KeepsItsIdentifierWhenTheJsonHasNone) {
  TargetSnapshot snap = Snap();
  EXPECT_TRUE(snap.FromJson(Json(R"({"target": {"target_id": "t9", "target_type": 3}})")));
  EXPECT_EQ(snap.target, Target("t9", 3));
  EXPECT_EQ(snap.tsnap_id, "s1");
}

TEST(TargetSnapshot, TakesNothingFromJsonThatIsNoObject) {
  for (const Json::Value& json : NotObjects()) {
    TargetSnapshot snap = Snap();
    EXPECT_TRUE(snap.FromJson(json)) << json;
    EXPECT_EQ(ToString(snap.ToJson()), ToString(Snap().ToJson())) << json;
  }
}

TEST(TargetSnapshot, TakesNothingFromMembersOfTheWrongKind) {
  for (const char* member : {"null", "7", "true", "[]", "[\"x\"]", "1.5"}) {
    TargetSnapshot snap = Snap();
    EXPECT_TRUE(snap.FromJson(
        Json(std::string("{\"target\": ") + member + ", \"tsnap_id\": " + member + "}")));
    EXPECT_EQ(ToString(snap.ToJson()), ToString(Snap().ToJson())) << member;
  }
}

TEST(TargetSnapshot, NamesItsThreeColumns) {
  EXPECT_THAT(Snap().ListSqliteField(), ElementsAre("target_id", "target_type", "tsnap_id"));
}

TEST(TargetSnapshot, GivesTheColumnsAskedForInTheirOrder) {
  EXPECT_THAT(Values(Snap().ToSqliteValues({"tsnap_id", "target_type", "target_id"})),
              ElementsAre("tsnap_id='s1'", "target_type=2", "target_id='t1'"));
}

TEST(TargetSnapshot, PassesOverColumnsThatAreNotItsOwn) {
  EXPECT_THAT(Values(Snap().ToSqliteValues({"gsnap_id", "tsnap_id", "", "TSNAP_ID"})),
              ElementsAre("tsnap_id='s1'"));
  EXPECT_THAT(Values(Snap().ToSqliteValues({"gsnap_id"})), IsEmpty());
  EXPECT_THAT(Values(Snap().ToSqliteValues({})), IsEmpty());
}

TEST(TargetSnapshot, GivesItsFullRow) {
  EXPECT_THAT(Values(Snap().ToSqliteRecord()),
              ElementsAre("target_id='t1'", "target_type=2", "tsnap_id='s1'"));
}

TEST(TargetSnapshot, ReadsARow) {
  TargetSnapshot snap(Target(), "");
  EXPECT_TRUE(
      snap.FromSqliteValues(Row({{"tsnap_id", "s1"}, {"target_id", "t1"}, {"target_type", 3}})));
  EXPECT_EQ(snap.target, Target("t1", 3));
  EXPECT_EQ(snap.tsnap_id, "s1");
}

TEST(TargetSnapshot, IsNotChangedByAnEmptyRow) {
  TargetSnapshot snap = Snap();
  EXPECT_TRUE(snap.FromSqliteValues(Row({})));
  EXPECT_EQ(ToString(snap.ToJson()), ToString(Snap().ToJson()));
}

TEST(TargetSnapshot, LosesItsTypeToARowWithoutOne) {
  TargetSnapshot snap = Snap();
  EXPECT_TRUE(snap.FromSqliteValues(Row({{"tsnap_id", "s2"}})));
  EXPECT_EQ(snap.target, Target("t1", 0));
  EXPECT_EQ(snap.tsnap_id, "s2");
  EXPECT_FALSE(snap.IsValid());
}

TEST(TargetSnapshot, ReadsARowThatHasAnyOneOfItsColumns) {
  EXPECT_TRUE(Snap().FromSqliteValues(Row({{"target_id", "t"}})));
  EXPECT_TRUE(Snap().FromSqliteValues(Row({{"target_type", 1}})));
  EXPECT_TRUE(Snap().FromSqliteValues(Row({{"tsnap_id", "s"}})));
}

TEST(TargetSnapshot, CannotReadARowWithNoneOfItsColumns) {
  TargetSnapshot snap = Snap();
  EXPECT_FALSE(snap.FromSqliteValues(Row({{"gsnap_id", "g1-gsnap-5"}})));
  EXPECT_EQ(snap.target, Target("t1", 0));
  EXPECT_EQ(snap.tsnap_id, "s1");
}

TEST(TargetSnapshot, TakesNullForAColumnThatIsNotThere) {
  TargetSnapshot snap = Snap();
  EXPECT_FALSE(snap.FromSqliteValues(Row({{"target_id", SqliteValue()},
                                          {"target_type", SqliteValue()},
                                          {"tsnap_id", SqliteValue()}})));
  EXPECT_EQ(snap.target, Target("t1", 0));
  EXPECT_EQ(snap.tsnap_id, "s1");
}

TEST(TargetSnapshotRelationship, StartsEmpty) {
  const TargetSnapshotRelationship empty;
  EXPECT_EQ(empty.target, Target("", 0));
  EXPECT_EQ(empty.tsnap_id, "");
  EXPECT_EQ(empty.gsnap_id, "");
  EXPECT_FALSE(empty.IsValid());
}

TEST(TargetSnapshotRelationship, IsValidWithAGroupSnapshotAndAValidTargetSnapshot) {
  EXPECT_TRUE(Related().IsValid());
  EXPECT_FALSE(TargetSnapshotRelationship(Snap(), "").IsValid());
  EXPECT_FALSE(TargetSnapshotRelationship(TargetSnapshot(Target("t1", 4), "s1"), "g").IsValid());
}

TEST(TargetSnapshotRelationship, AddsItsGroupSnapshotToTheJson) {
  EXPECT_EQ(ToString(Related().ToJson()),
            R"({"gsnap_id":"g1-gsnap-5","target":{"target_id":"t1","target_type":2},)"
            R"("tsnap_id":"s1"})");
}

TEST(TargetSnapshotRelationship, ReadsBackItsOwnJson) {
  TargetSnapshotRelationship read;
  EXPECT_TRUE(read.FromJson(Related().ToJson()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(Related().ToJson()));
}

TEST(TargetSnapshotRelationship, KeepsWhatTheJsonDoesNotHave) {
  TargetSnapshotRelationship related = Related();
  EXPECT_TRUE(related.FromJson(Json(R"({"gsnap_id": "g2-gsnap-6"})")));
  EXPECT_EQ(related.target, Target("t1", 2));
  EXPECT_EQ(related.tsnap_id, "s1");
  EXPECT_EQ(related.gsnap_id, "g2-gsnap-6");
  EXPECT_TRUE(related.FromJson(Json(R"({"tsnap_id": "s7", "gsnap_id": 7})")));
  EXPECT_EQ(related.tsnap_id, "s7");
  EXPECT_EQ(related.gsnap_id, "g2-gsnap-6");
}

TEST(TargetSnapshotRelationship, TakesNothingFromJsonThatIsNoObject) {
  for (const Json::Value& json : NotObjects()) {
    TargetSnapshotRelationship related = Related();
    EXPECT_TRUE(related.FromJson(json)) << json;
    EXPECT_EQ(ToString(related.ToJson()), ToString(Related().ToJson())) << json;
  }
}

TEST(TargetSnapshotRelationship, NamesTheColumnsOfItsTable) {
  EXPECT_THAT(Related().ListSqliteField(),
              ElementsAre("target_id", "target_type", "tsnap_id", "gsnap_id"));
}

TEST(TargetSnapshotRelationship, GivesTheGroupSnapshotAfterTheOtherColumns) {
  EXPECT_THAT(Values(Related().ToSqliteValues({"gsnap_id", "tsnap_id"})),
              ElementsAre("tsnap_id='s1'", "gsnap_id='g1-gsnap-5'"));
  EXPECT_THAT(Values(Related().ToSqliteValues({"tag"})), IsEmpty());
}

TEST(TargetSnapshotRelationship, GivesItsFullRow) {
  EXPECT_THAT(
      Values(Related().ToSqliteRecord()),
      ElementsAre("target_id='t1'", "target_type=2", "tsnap_id='s1'", "gsnap_id='g1-gsnap-5'"));
}

TEST(TargetSnapshotRelationship, ReadsARow) {
  TargetSnapshotRelationship read;
  EXPECT_TRUE(read.FromSqliteValues(Related().ToSqliteRecord()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(Related().ToJson()));
}

TEST(TargetSnapshotRelationship, ReadsARowOfTheGroupSnapshotAlone) {
  TargetSnapshotRelationship related = Related();
  EXPECT_TRUE(related.FromSqliteValues(Row({{"gsnap_id", "g2-gsnap-6"}})));
  EXPECT_EQ(related.gsnap_id, "g2-gsnap-6");
  EXPECT_EQ(related.target, Target("t1", 0));
  EXPECT_EQ(related.tsnap_id, "s1");
}

TEST(TargetSnapshotRelationship, CannotReadARowWithNoneOfItsColumns) {
  EXPECT_FALSE(Related().FromSqliteValues(Row({{"tag", "g1"}})));
  EXPECT_FALSE(Related().FromSqliteValues(Row({{"gsnap_id", SqliteValue()}})));
}

TEST(TargetSnapshotRelationship, IsNotChangedByAnEmptyRow) {
  TargetSnapshotRelationship related = Related();
  EXPECT_TRUE(related.FromSqliteValues(Row({})));
  EXPECT_EQ(ToString(related.ToJson()), ToString(Related().ToJson()));
}

}  // namespace
}  // namespace unit
