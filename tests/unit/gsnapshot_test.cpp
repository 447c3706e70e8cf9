#include <gmock/gmock.h>
#include <vreldrcore/json.h>
#include <vreldrgroup/record/gsnapshot.h>

#include "filled_gsnapshot.h"
#include "record_values.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDRCore::SqliteValue;
using VrelDRCore::JsonUtil::ToString;
using VrelDRGroup::GsnapCwType;
using VrelDRGroup::GsnapMeta;
using VrelDRGroup::Gsnapshot;

GsnapMeta Meta() {
  return GsnapMeta("words", true, VrelDRGroup::kCwApplicationConsistent);
}

TEST(GsnapMeta, GivesItsJson) {
  EXPECT_EQ(ToString(Meta().ToJson()), R"({"cw_type":2,"desc":"words","is_user_locked":true})");
}

TEST(GsnapMeta, ReadsBackItsOwnJson) {
  GsnapMeta read("", false, VrelDRGroup::kCwUnspecified);
  EXPECT_TRUE(read.FromJson(Meta().ToJson()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(Meta().ToJson()));
}

TEST(GsnapMeta, LosesItsTypeButNothingElseToJsonWithoutMembers) {
  GsnapMeta meta = Meta();
  EXPECT_TRUE(meta.FromJson(Json("{}")));
  EXPECT_EQ(ToString(meta.ToJson()), R"({"cw_type":0,"desc":"words","is_user_locked":true})");
}

TEST(GsnapMeta, IsNotChangedByJsonNull) {
  GsnapMeta meta = Meta();
  EXPECT_TRUE(meta.FromJson(Json::Value()));
  EXPECT_EQ(ToString(meta.ToJson()), ToString(Meta().ToJson()));
}

TEST(GsnapMeta, TakesNothingFromMembersOfTheWrongKind) {
  GsnapMeta meta = Meta();
  EXPECT_TRUE(meta.FromJson(Json(R"({"desc": 5, "is_user_locked": "no", "cw_type": "1"})")));
  EXPECT_EQ(ToString(meta.ToJson()), R"({"cw_type":0,"desc":"words","is_user_locked":true})");
}

TEST(GsnapMeta, NeverThrowsOverJsonOfTheWrongKind) {
  for (const Json::Value& json : NotObjects()) {
    GsnapMeta meta = Meta();
    EXPECT_TRUE(meta.FromJson(json)) << json;
    EXPECT_EQ(meta.desc, "words") << json;
    EXPECT_TRUE(meta.is_user_locked) << json;
  }
}

TEST(GsnapMeta, KeepsATypeThatHasNoName) {
  GsnapMeta meta = Meta();
  EXPECT_TRUE(meta.FromJson(Json(R"({"cw_type": -9})")));
  EXPECT_EQ(meta.cw_type, static_cast<GsnapCwType>(-9));
  EXPECT_THAT(Values(meta.ToSqliteValues({"cw_type"})), ElementsAre("cw_type=-9"));
}

TEST(GsnapMeta, GivesItsColumnsInTheOrderAskedFor) {
  EXPECT_THAT(Meta().ListSqliteField(), ElementsAre("desc", "is_user_locked", "cw_type"));
  EXPECT_THAT(Values(Meta().ToSqliteValues({"cw_type", "status", "desc", "is_user_locked"})),
              ElementsAre("cw_type=2", "desc='words'", "is_user_locked=1"));
}

TEST(GsnapMeta, GivesNoValueForNoColumnAndForUnknownOnes) {
  EXPECT_THAT(Values(Meta().ToSqliteValues({})), IsEmpty());
  EXPECT_THAT(Values(Meta().ToSqliteValues({"gsnap_id", "DESC", ""})), IsEmpty());
}

TEST(GsnapMeta, ReadsARow) {
  GsnapMeta read("", false, VrelDRGroup::kCwUnspecified);
  EXPECT_TRUE(read.FromSqliteValues(Meta().ToSqliteRecord()));
  EXPECT_EQ(ToString(read.ToJson()), ToString(Meta().ToJson()));
}

TEST(GsnapMeta, LosesItsTypeToARowWithoutOne) {
  GsnapMeta meta = Meta();
  EXPECT_TRUE(meta.FromSqliteValues(Row({{"is_user_locked", false}})));
  EXPECT_EQ(ToString(meta.ToJson()), R"({"cw_type":0,"desc":"words","is_user_locked":false})");
}

TEST(GsnapMeta, ReadsARowThatHasAnyOneOfItsColumns) {
  EXPECT_TRUE(Meta().FromSqliteValues(Row({{"desc", ""}})));
  EXPECT_TRUE(Meta().FromSqliteValues(Row({{"is_user_locked", true}})));
  EXPECT_TRUE(Meta().FromSqliteValues(Row({{"cw_type", 0}})));
}

TEST(GsnapMeta, CannotReadARowWithNoneOfItsColumns) {
  EXPECT_FALSE(Meta().FromSqliteValues(Row({{"status", 1}})));
  EXPECT_FALSE(Meta().FromSqliteValues(Row({{"desc", SqliteValue()}})));
}

TEST(GsnapMeta, IsNotChangedByAnEmptyRow) {
  GsnapMeta meta = Meta();
  EXPECT_TRUE(meta.FromSqliteValues(Row({})));
  EXPECT_EQ(ToString(meta.ToJson()), ToString(Meta().ToJson()));
}

TEST(Gsnapshot, StartsWithItsIdentifierAlone) {
  EXPECT_EQ(ToString(Gsnapshot("id").ToJson()),
            R"({"cw_type":0,"desc":"","gsnap_id":"id","gsnap_name":"GMT-1970.01.01-00.00.00",)"
            R"("gsnap_time":0,"gsnap_time_str":"0","is_user_locked":false,"status":0,"tag":""})");
}

TEST(Gsnapshot, GivesItsJsonWithNameAndTimeText) {
  EXPECT_EQ(ToString(Filled().ToJson()), kFilledJson);
}

TEST(Gsnapshot, GivesATimeOfMoreThan32BitsAsItIs) {
  Gsnapshot gsnap("id");
  gsnap.gsnap_time = 4294967296;
  EXPECT_EQ(gsnap.ToJson()["gsnap_time"].asInt64(), 4294967296);
  EXPECT_EQ(gsnap.ToJson()["gsnap_time_str"].asString(), "4294967296");
  EXPECT_EQ(gsnap.ToJson()["gsnap_name"].asString(), "GMT-2106.02.07-06.28.16");
}

TEST(Gsnapshot, ReadsBackItsOwnJson) {
  Gsnapshot read("");
  EXPECT_TRUE(read.FromJson(Filled().ToJson()));
  EXPECT_EQ(ToString(read.ToJson()), kFilledJson);
}

TEST(Gsnapshot, ReadsATimeOfMoreThan32BitsFromJson) {
  Gsnapshot read("");
  EXPECT_TRUE(read.FromJson(Json(R"({"gsnap_time": 4294967296})")));
  EXPECT_EQ(read.gsnap_time, 4294967296);
}

TEST(Gsnapshot, LosesTimeAndStatusButNotIdentifierAndTagToJsonWithoutThem) {
  Gsnapshot gsnap = Filled();
  EXPECT_TRUE(gsnap.FromJson(Json("{}")));
  EXPECT_EQ(gsnap.gsnap_time, 0);
  EXPECT_EQ(gsnap.status, VrelDRGroup::kGsnapUnknown);
  EXPECT_EQ(gsnap.cw_type, VrelDRGroup::kCwUnspecified);
  EXPECT_EQ(gsnap.gsnap_id, "g1-gsnap-1700000000");
  EXPECT_EQ(gsnap.tag, "g1");
  EXPECT_EQ(gsnap.desc, "words");
  EXPECT_TRUE(gsnap.is_user_locked);
}

TEST(Gsnapshot, DoesNotReadItsNameAndTimeTextBack) {
  Gsnapshot gsnap("id");
  EXPECT_TRUE(gsnap.FromJson(Json(
      R"({"gsnap_time": 7, "gsnap_time_str": "8", "gsnap_name": "GMT-2023.11.14-22.13.20"})")));
  EXPECT_EQ(gsnap.gsnap_time, 7);
}

TEST(Gsnapshot, TakesZeroForNumbersOfTheWrongKindAndSize) {
  for (const char* wrong : {"\"7\"", "true", "null", "[7]", "{}", "1.5", "18446744073709551615"}) {
    Gsnapshot gsnap = Filled();
    EXPECT_TRUE(gsnap.FromJson(
        Json(std::string("{\"gsnap_time\": ") + wrong + ", \"status\": " + wrong + "}")));
    EXPECT_EQ(gsnap.gsnap_time, 0) << wrong;
    EXPECT_EQ(gsnap.status, VrelDRGroup::kGsnapUnknown) << wrong;
  }
}

TEST(Gsnapshot, KeepsItsTextsWhenTheJsonHasThemInTheWrongKind) {
  Gsnapshot gsnap = Filled();
  EXPECT_TRUE(gsnap.FromJson(Json(R"({"gsnap_id": 1, "tag": {}, "desc": null})")));
  EXPECT_EQ(gsnap.gsnap_id, "g1-gsnap-1700000000");
  EXPECT_EQ(gsnap.tag, "g1");
  EXPECT_EQ(gsnap.desc, "words");
}

TEST(Gsnapshot, IsNotChangedByJsonNull) {
  Gsnapshot gsnap = Filled();
  EXPECT_TRUE(gsnap.FromJson(Json::Value()));
  EXPECT_EQ(ToString(gsnap.ToJson()), kFilledJson);
}

TEST(Gsnapshot, NeverThrowsOverJsonOfTheWrongKind) {
  for (const Json::Value& json : NotObjects()) {
    Gsnapshot gsnap = Filled();
    EXPECT_TRUE(gsnap.FromJson(json)) << json;
    EXPECT_EQ(gsnap.gsnap_id, "g1-gsnap-1700000000") << json;
  }
}

TEST(Gsnapshot, NamesTheColumnsOfItsTable) {
  EXPECT_THAT(Filled().ListSqliteField(), ElementsAre("desc", "is_user_locked", "cw_type",
                                                      "gsnap_id", "tag", "gsnap_time", "status"));
}

TEST(Gsnapshot, GivesItsFullRow) {
  EXPECT_THAT(
      Values(Filled().ToSqliteRecord()),
      ElementsAre("desc='words'", "is_user_locked=1", "cw_type=2", "gsnap_id='g1-gsnap-1700000000'",
                  "tag='g1'", "gsnap_time=1700000000", "status=1"));
}

TEST(Gsnapshot, GivesTheColumnsOfItsMetadataFirst) {
  EXPECT_THAT(Values(Filled().ToSqliteValues({"status", "desc"})),
              ElementsAre("desc='words'", "status=1"));
  EXPECT_THAT(
      Values(Filled().ToSqliteValues({"status", "cw_type", "gsnap_id", "desc"})),
      ElementsAre("cw_type=2", "desc='words'", "status=1", "gsnap_id='g1-gsnap-1700000000'"));
}

TEST(Gsnapshot, GivesNoValueForNoColumnAndForUnknownOnes) {
  EXPECT_THAT(Values(Filled().ToSqliteValues({})), IsEmpty());
  EXPECT_THAT(Values(Filled().ToSqliteValues({"minor_id", "tsnap_id"})), IsEmpty());
}

TEST(Gsnapshot, ReadsBackItsFullRow) {
  Gsnapshot read("");
  EXPECT_TRUE(read.FromSqliteValues(Filled().ToSqliteRecord()));
  EXPECT_EQ(ToString(read.ToJson()), kFilledJson);
}

TEST(Gsnapshot, ReadsOnly32BitsOfAStoredTime) {
  const auto read = [](long stored) {
    Gsnapshot gsnap = Filled();
    EXPECT_TRUE(gsnap.FromSqliteValues(Row({{"gsnap_time", stored}})));
    return gsnap.gsnap_time;
  };
  EXPECT_EQ(read(4294967295), 4294967295);
  EXPECT_EQ(read(4294967296), 0);
  EXPECT_EQ(read(4294967297), 1);
  EXPECT_EQ(read(-1), 4294967295);
}

TEST(Gsnapshot, LosesTimeAndStatusToARowWithoutThem) {
  Gsnapshot gsnap = Filled();
  EXPECT_TRUE(gsnap.FromSqliteValues(Row({{"tag", "g2"}})));
  EXPECT_EQ(gsnap.tag, "g2");
  EXPECT_EQ(gsnap.gsnap_id, "g1-gsnap-1700000000");
  EXPECT_EQ(gsnap.desc, "words");
  EXPECT_EQ(gsnap.gsnap_time, 0);
  EXPECT_EQ(gsnap.status, VrelDRGroup::kGsnapUnknown);
  EXPECT_EQ(gsnap.cw_type, VrelDRGroup::kCwUnspecified);
}

TEST(Gsnapshot, ReadsARowThatHasAnyOneOfItsColumns) {
  EXPECT_TRUE(Gsnapshot("").FromSqliteValues(Row({{"desc", "d"}})));
  EXPECT_TRUE(Gsnapshot("").FromSqliteValues(Row({{"gsnap_id", "i"}})));
  EXPECT_TRUE(Gsnapshot("").FromSqliteValues(Row({{"gsnap_time", 0}})));
  EXPECT_TRUE(Gsnapshot("").FromSqliteValues(Row({{"status", 0}})));
}

TEST(Gsnapshot, CannotReadARowWithNoneOfItsColumns) {
  EXPECT_FALSE(Gsnapshot("").FromSqliteValues(Row({{"tsnap_id", "s"}})));
  EXPECT_FALSE(Gsnapshot("").FromSqliteValues(Row({{"gsnap_id", SqliteValue()}})));
}

TEST(Gsnapshot, IsNotChangedByAnEmptyRow) {
  Gsnapshot gsnap = Filled();
  EXPECT_TRUE(gsnap.FromSqliteValues(Row({})));
  EXPECT_EQ(ToString(gsnap.ToJson()), kFilledJson);
}

TEST(Gsnapshot, KeepsAStatusThatHasNoName) {
  Gsnapshot gsnap("");
  EXPECT_TRUE(gsnap.FromSqliteValues(Row({{"status", 7}})));
  EXPECT_EQ(gsnap.ToJson()["status"].asInt(), 7);
}

}  // namespace
}  // namespace unit
