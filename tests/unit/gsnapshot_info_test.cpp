#include <gmock/gmock.h>
#include <vreldrcore/json.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <cstdlib>
#include <ctime>
#include <limits>

#include "filled_gsnapshot.h"
#include "record_values.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Target;
using VrelDRCore::JsonUtil::ToString;
using VrelDRGroup::Gsnapshot;
using VrelDRGroup::GsnapshotInfo;
using VrelDRGroup::GsnapStatus;
using VrelDRGroup::TargetReplica;
using VrelDRGroup::TargetSnapshot;

TEST(GsnapshotInfo, StartsWithoutPartsWhichItsJsonShows) {
  const GsnapshotInfo info("id");
  EXPECT_THAT(info.target_snapshots, IsEmpty());
  EXPECT_THAT(info.target_replicas, IsEmpty());
  EXPECT_EQ(ToString(info.ToJson()["target_snapshots"]), "[]");
  EXPECT_EQ(info.ToJson()["gsnap_id"].asString(), "id");
}

TEST(GsnapshotInfo, AddsItsTargetSnapshotsInOrderButNoReplicasToTheJson) {
  auto info = Filled<GsnapshotInfo>();
  info.target_snapshots = {TargetSnapshot(Target("t2", 2), "s2"),
                           TargetSnapshot(Target("t1", 1), "s1")};
  info.target_replicas = {TargetReplica("t1", "r1")};
  Json::Value json = info.ToJson();
  EXPECT_EQ(ToString(json["target_snapshots"]),
            R"([{"target":{"target_id":"t2","target_type":2},"tsnap_id":"s2"},)"
            R"({"target":{"target_id":"t1","target_type":1},"tsnap_id":"s1"}])");
  json.removeMember("target_snapshots");
  EXPECT_EQ(ToString(json), kFilledJson);
}

TEST(GsnapshotInfo, ReadsBackItsOwnJson) {
  auto info = Filled<GsnapshotInfo>();
  info.target_snapshots = {TargetSnapshot(Target("t1", 1), "s1")};
  GsnapshotInfo read("");
  EXPECT_TRUE(read.FromJson(info.ToJson()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(info.ToJson()));
}

TEST(GsnapshotInfo, AppendsTheTargetSnapshotsOfTheJson) {
  GsnapshotInfo info("id");
  info.target_snapshots = {TargetSnapshot(Target("t1", 1), "s1")};
  EXPECT_TRUE(info.FromJson(Json(R"({"target_snapshots": [
      {"target": {"target_id": "t2", "target_type": 2}, "tsnap_id": "s2"},
      {"target": {"target_id": "t1", "target_type": 1}, "tsnap_id": "s1"}]})")));
  ASSERT_EQ(info.target_snapshots.size(), 3U);
  EXPECT_THAT(info.ListTargets(), ElementsAre(Target("t1", 1), Target("t2", 2), Target("t1", 1)));
}

TEST(GsnapshotInfo, KeepsItsTargetSnapshotsWhenTheJsonHasNoArrayOfThem) {
  for (const char* member : {"null", "7", "\"x\"", "true",
                             R"({"0": {"target": {"target_id": "t", "target_type": 1}}})"}) {
    GsnapshotInfo info("id");
    info.target_snapshots = {TargetSnapshot(Target("t1", 1), "s1")};
    EXPECT_TRUE(info.FromJson(Json(std::string("{\"target_snapshots\": ") + member + "}")));
    EXPECT_THAT(info.ListTargets(), ElementsAre(Target("t1", 1))) << member;
  }
}

TEST(GsnapshotInfo, DropsTargetSnapshotsThatAreNotValid) {
  GsnapshotInfo info("id");
  EXPECT_TRUE(info.FromJson(Json(R"({"target_snapshots": [
      {"target": {"target_id": "t", "target_type": 0}, "tsnap_id": "s"},
      {"target": {"target_id": "t", "target_type": 4}, "tsnap_id": "s"},
      {"target": {"target_id": "", "target_type": 1}, "tsnap_id": "s"},
      {"target": {"target_id": "t", "target_type": 1}, "tsnap_id": ""},
      {"target": {"target_id": "t", "target_type": 1}},
      {"tsnap_id": "s"}, {}, null, 7, "x", [],
      {"target": "t", "tsnap_id": "s"},
      {"target": {"target_id": 5, "target_type": "1"}, "tsnap_id": 9},
      {"target": {"target_id": "good", "target_type": 3}, "tsnap_id": "s"}]})")));
  EXPECT_THAT(info.ListTargets(), ElementsAre(Target("good", 3)));
}

TEST(GsnapshotInfo, NeverThrowsOverJsonOfTheWrongKind) {
  for (const Json::Value& json : NotObjects()) {
    GsnapshotInfo info("id");
    EXPECT_TRUE(info.FromJson(json)) << json;
    EXPECT_EQ(info.gsnap_id, "id") << json;
    EXPECT_THAT(info.target_snapshots, IsEmpty()) << json;
  }
}

TEST(GsnapshotInfo, ListsOneTargetForEveryTargetSnapshot) {
  GsnapshotInfo info("id");
  EXPECT_THAT(info.ListTargets(), IsEmpty());
  info.target_snapshots = {TargetSnapshot(Target("t2", 2), "s2"),
                           TargetSnapshot(Target("t2", 2), "s3"),
                           TargetSnapshot(Target("", 9), "")};
  EXPECT_THAT(info.ListTargets(), ElementsAre(Target("t2", 2), Target("t2", 2), Target("", 9)));
}

TEST(GsnapshotInfo, MapsToARowAsAGroupSnapshotDoes) {
  const auto info = Filled<GsnapshotInfo>();
  EXPECT_EQ(info.ListSqliteField(), Filled().ListSqliteField());
  EXPECT_EQ(Values(info.ToSqliteRecord()), Values(Filled().ToSqliteRecord()));
}

TEST(GsnapStatus, HasAWordForEachOfItsThreeValues) {
  EXPECT_EQ(ToString(VrelDRGroup::kGsnapUnknown), "unknown");
  EXPECT_EQ(ToString(VrelDRGroup::kGsnapReady), "ready");
  EXPECT_EQ(ToString(VrelDRGroup::kGsnapBad), "bad");
}

TEST(GsnapStatus, PrintsAnyOtherValueAsItsNumber) {
  EXPECT_EQ(ToString(static_cast<GsnapStatus>(3)), "unknown [3]");
  EXPECT_EQ(ToString(static_cast<GsnapStatus>(-1)), "unknown [-1]");
  EXPECT_EQ(ToString(static_cast<GsnapStatus>(std::numeric_limits<int>::min())),
            "unknown [-2147483648]");
}

TEST(TimestampToGMTStr, GivesTheTimeInUtc) {
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(0), "GMT-1970.01.01-00.00.00");
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(1700000000), "GMT-2023.11.14-22.13.20");
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(-1), "GMT-1969.12.31-23.59.59");
}

TEST(TimestampToGMTStr, DoesNotDependOnTheTimeZone) {
  setenv("TZ", "XYZ-9", 1);
  tzset();
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(0), "GMT-1970.01.01-00.00.00");
  unsetenv("TZ");
  tzset();
}

TEST(TimestampToGMTStr, IsEmptyForATimeBeyondTheCalendar) {
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(std::numeric_limits<long>::max()), "");
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(std::numeric_limits<long>::min()), "");
}

TEST(TimestampToGMTStr, GivesTheLongestYearsWhole) {
  EXPECT_EQ(VrelDRGroup::TimestampToGMTStr(67767976233532799), "GMT-2147483647.12.31-23.59.59");
}

TEST(GsnapshotIdentifier, IsTakenApartByTheShortcuts) {
  EXPECT_EQ(VrelDRGroup::GetGroupIdByGsnapId("g-gsnap-1-gsnap-2"), "g-gsnap-1");
  EXPECT_EQ(VrelDRGroup::GetSnapTimeByGsnapId("g-gsnap-1-gsnap-2"), 2);
  EXPECT_EQ(VrelDRGroup::GetGroupIdByGsnapId("g1"), "");
  EXPECT_EQ(VrelDRGroup::GetSnapTimeByGsnapId("g1"), 0);
  EXPECT_EQ(VrelDRGroup::GetSnapTimeByGsnapId("g1-gsnap-4294967297"), 1);
}

}  // namespace
}  // namespace unit
