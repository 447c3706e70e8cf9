#include <gmock/gmock.h>
#include <vreldrcore/json.h>
#include <vreldrgroup/record/target_replica.h>

#include "record_values.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDRCore::SqliteValue;
using VrelDRCore::JsonUtil::ToString;
using VrelDRGroup::TargetReplica;
using VrelDRGroup::TargetReplicaRelationship;

TargetReplica Replica() {
  return TargetReplica("src", "dst");
}
TargetReplicaRelationship Related() {
  return TargetReplicaRelationship(Replica(), "g1-gsnap-5");
}

TEST(TargetReplica, IsValidWithBothTargets) {
  EXPECT_TRUE(Replica().IsValid());
  EXPECT_FALSE(TargetReplica("", "dst").IsValid());
  EXPECT_FALSE(TargetReplica("src", "").IsValid());
  EXPECT_FALSE(TargetReplica("", "").IsValid());
}

TEST(TargetReplica, GivesBothTargetsAsJson) {
  EXPECT_EQ(ToString(Replica().ToJson()), R"({"dst_target_id":"dst","src_target_id":"src"})");
}

TEST(TargetReplica, ReadsBackItsOwnJson) {
  TargetReplica read("", "");
  EXPECT_TRUE(read.FromJson(Replica().ToJson()));
  EXPECT_EQ(read.src_target_id, "src");
  EXPECT_EQ(read.dst_target_id, "dst");
}

TEST(TargetReplica, KeepsWhatTheJsonDoesNotHave) {
  TargetReplica replica = Replica();
  EXPECT_TRUE(replica.FromJson(Json(R"({"src_target_id": "other"})")));
  EXPECT_EQ(replica.src_target_id, "other");
  EXPECT_EQ(replica.dst_target_id, "dst");
  EXPECT_TRUE(replica.FromJson(Json(R"({"dst_target_id": "far"})")));
  EXPECT_EQ(replica.src_target_id, "other");
  EXPECT_EQ(replica.dst_target_id, "far");
}

TEST(TargetReplica, TakesNothingFromJsonOfTheWrongKind) {
  std::vector<Json::Value> wrong = NotObjects();
  wrong.push_back(Json(R"({"src_target_id": 1, "dst_target_id": {"a": 1}})"));
  wrong.push_back(Json(R"({"src_target_id": null, "dst_target_id": []})"));
  for (const Json::Value& json : wrong) {
    TargetReplica replica = Replica();
    EXPECT_TRUE(replica.FromJson(json)) << json;
    EXPECT_EQ(ToString(replica.ToJson()), ToString(Replica().ToJson())) << json;
  }
}

TEST(TargetReplica, NamesItsTwoColumns) {
  EXPECT_THAT(Replica().ListSqliteField(), ElementsAre("src_target_id", "dst_target_id"));
}

TEST(TargetReplica, GivesTheColumnsAskedForInTheirOrder) {
  EXPECT_THAT(Values(Replica().ToSqliteValues({"dst_target_id", "tag", "src_target_id"})),
              ElementsAre("dst_target_id='dst'", "src_target_id='src'"));
  EXPECT_THAT(Values(Replica().ToSqliteValues({})), IsEmpty());
  EXPECT_THAT(Values(Replica().ToSqliteValues({"gsnap_id"})), IsEmpty());
}

TEST(TargetReplica, ReadsARowThatHasAnyOneOfItsColumns) {
  TargetReplica replica = Replica();
  EXPECT_TRUE(replica.FromSqliteValues(Row({{"src_target_id", "a"}})));
  EXPECT_TRUE(replica.FromSqliteValues(Row({{"dst_target_id", "b"}})));
  EXPECT_EQ(replica.src_target_id, "a");
  EXPECT_EQ(replica.dst_target_id, "b");
}

TEST(TargetReplica, CannotReadARowWithNoneOfItsColumns) {
  TargetReplica replica = Replica();
  EXPECT_FALSE(replica.FromSqliteValues(Row({{"gsnap_id", "g1-gsnap-5"}})));
  EXPECT_FALSE(replica.FromSqliteValues(
      Row({{"src_target_id", SqliteValue()}, {"dst_target_id", SqliteValue()}})));
  EXPECT_EQ(ToString(replica.ToJson()), ToString(Replica().ToJson()));
}

TEST(TargetReplica, IsNotChangedByAnEmptyRow) {
  TargetReplica replica = Replica();
  EXPECT_TRUE(replica.FromSqliteValues(Row({})));
  EXPECT_EQ(ToString(replica.ToJson()), ToString(Replica().ToJson()));
}

TEST(TargetReplicaRelationship, StartsEmpty) {
  EXPECT_EQ(ToString(TargetReplicaRelationship().ToJson()),
            R"({"dst_target_id":"","gsnap_id":"","src_target_id":""})");
  EXPECT_FALSE(TargetReplicaRelationship().IsValid());
}

TEST(TargetReplicaRelationship, IsValidWithAGroupSnapshotAndBothTargets) {
  EXPECT_TRUE(Related().IsValid());
  EXPECT_FALSE(TargetReplicaRelationship(Replica(), "").IsValid());
  EXPECT_FALSE(TargetReplicaRelationship(TargetReplica("src", ""), "g").IsValid());
}

TEST(TargetReplicaRelationship, ReadsBackItsOwnJson) {
  EXPECT_EQ(ToString(Related().ToJson()),
            R"({"dst_target_id":"dst","gsnap_id":"g1-gsnap-5","src_target_id":"src"})");
  TargetReplicaRelationship read;
  EXPECT_TRUE(read.FromJson(Related().ToJson()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(Related().ToJson()));
}

TEST(TargetReplicaRelationship, KeepsWhatTheJsonDoesNotHave) {
  TargetReplicaRelationship related = Related();
  EXPECT_TRUE(related.FromJson(Json(R"({"gsnap_id": "g2-gsnap-6"})")));
  EXPECT_TRUE(related.FromJson(Json(R"({"gsnap_id": [1], "dst_target_id": "far"})")));
  EXPECT_EQ(ToString(related.ToJson()),
            R"({"dst_target_id":"far","gsnap_id":"g2-gsnap-6","src_target_id":"src"})");
}

TEST(TargetReplicaRelationship, TakesNothingFromJsonThatIsNoObject) {
  for (const Json::Value& json : NotObjects()) {
    TargetReplicaRelationship related = Related();
    EXPECT_TRUE(related.FromJson(json)) << json;
    EXPECT_EQ(ToString(related.ToJson()), ToString(Related().ToJson())) << json;
  }
}

TEST(TargetReplicaRelationship, NamesTheColumnsOfItsTable) {
  EXPECT_THAT(Related().ListSqliteField(),
              ElementsAre("src_target_id", "dst_target_id", "gsnap_id"));
}

TEST(TargetReplicaRelationship, GivesTheGroupSnapshotAfterTheOtherColumns) {
  EXPECT_THAT(Values(Related().ToSqliteValues({"gsnap_id", "dst_target_id", "src_target_id"})),
              ElementsAre("dst_target_id='dst'", "src_target_id='src'", "gsnap_id='g1-gsnap-5'"));
}

TEST(TargetReplicaRelationship, ReadsBackItsFullRow) {
  TargetReplicaRelationship read;
  EXPECT_TRUE(read.FromSqliteValues(Related().ToSqliteRecord()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(Related().ToJson()));
}

TEST(TargetReplicaRelationship, ReadsARowOfTheGroupSnapshotAlone) {
  TargetReplicaRelationship related = Related();
  EXPECT_TRUE(related.FromSqliteValues(Row({{"gsnap_id", "g2-gsnap-6"}})));
  EXPECT_EQ(related.gsnap_id, "g2-gsnap-6");
  EXPECT_EQ(related.src_target_id, "src");
}

TEST(TargetReplicaRelationship, CannotReadARowWithNoneOfItsColumns) {
  EXPECT_FALSE(Related().FromSqliteValues(Row({{"tag", "g1"}})));
  EXPECT_FALSE(Related().FromSqliteValues(Row({{"gsnap_id", SqliteValue()}})));
}

TEST(TargetReplicaRelationship, IsNotChangedByAnEmptyRow) {
  TargetReplicaRelationship related = Related();
  EXPECT_TRUE(related.FromSqliteValues(Row({})));
  EXPECT_EQ(ToString(related.ToJson()), ToString(Related().ToJson()));
}

}  // namespace
}  // namespace unit
