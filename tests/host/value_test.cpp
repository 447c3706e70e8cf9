#include <gtest/gtest.h>

#include "vreldr/error.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"
#include "vreldr/utils.h"
#include "vreldrcore/json.h"
#include "vreldrcore/sqlite_value.h"

namespace host_test {
namespace {

using VrelDR::Target;
using VrelDR::Operation::Snapshot;
using VrelDR::Utils::ParseJsonValueFromField;
using VrelDRCore::SqliteValue;
using VrelDRCore::SqliteValueList;

TEST(TargetValue, GoesThroughJson) {
  const Target target("lun \"1\"", VrelDR::kTargetLun);
  EXPECT_EQ(VrelDRCore::JsonUtil::ToString(target.ToJson()),
            R"({"target_id":"lun \"1\"","target_type":1})");
  Target read;
  EXPECT_TRUE(read.FromJson(target.ToJson()));
  EXPECT_EQ(read, target);
}

TEST(TargetValue, KeepsWhatTheJsonDoesNotSay) {
  Target target("a", 2);
  EXPECT_TRUE(target.FromJson(Json::Value()));
  EXPECT_EQ(target, Target("a", 2));
  Json::Value json(Json::objectValue);
  json["target_type"] = "3";
  json["target_id"] = 5;
  EXPECT_TRUE(target.FromJson(json));
  EXPECT_EQ(target, Target("a", 2));
  EXPECT_FALSE(target.FromJson(Json::Value("text")));
  EXPECT_FALSE(target.FromJson(Json::Value(Json::arrayValue)));
  EXPECT_EQ(target, Target("a", 2));
}

TEST(TargetValue, IsOrderedByIdentifierThenKind) {
  EXPECT_LT(Target("a", 3), Target("b", 1));
  EXPECT_LT(Target("a", 1), Target("a", 2));
  EXPECT_FALSE(Target("a", 1) < Target("a", 1));
  EXPECT_NE(Target("a", 1), Target("a", 2));
  EXPECT_EQ(Target().GetType(), 0);
}

TEST(JsonFields, AreTakenWhenTheyFit) {
  Json::Value object(Json::objectValue);
  object["text"] = "t";
  object["flag"] = true;
  object["number"] = 5;
  object["large"] = Json::Int64{1} << 40;
  object["half"] = 1.5;
  std::string text = "before";
  bool flag = false;
  int number = 1;
  long large = 1;
  ParseJsonValueFromField(object, "text", text);
  ParseJsonValueFromField(object, "flag", flag);
  ParseJsonValueFromField(object, "number", number);
  ParseJsonValueFromField(object, "large", large);
  EXPECT_EQ(text, "t");
  EXPECT_TRUE(flag);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(large, 1L << 40);
}

TEST(JsonFields, LeaveTheOutputAloneOtherwise) {
  Json::Value object(Json::objectValue);
  object["text"] = "t";
  object["large"] = Json::Int64{1} << 40;
  object["half"] = 1.5;
  object["huge"] = 1e300;
  std::string text = "before";
  bool flag = true;
  int number = 1;
  long large = 2;
  for (const char* key : {"text", "large", "half", "huge", "missing"}) {
    ParseJsonValueFromField(object, key, flag);
    ParseJsonValueFromField(object, key, number);
  }
  for (const char* key : {"text", "half", "huge", "missing"}) {
    ParseJsonValueFromField(object, key, large);
  }
  ParseJsonValueFromField(object, "large", text);
  ParseJsonValueFromField(Json::Value("no object"), "text", text);
  ParseJsonValueFromField(Json::Value(Json::arrayValue), "text", text);
  EXPECT_EQ(text, "before");
  EXPECT_TRUE(flag);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(large, 2);
}

TEST(Texts, NameNumbersAndKinds) {
  EXPECT_EQ(VrelDR::Utils::ToString(-5L), "-5");
  EXPECT_EQ(VrelDR::Utils::ToString(VrelDR::kTargetLun), "lun");
  EXPECT_EQ(VrelDR::Utils::ToString(VrelDR::kTargetShare), "share");
  EXPECT_EQ(VrelDR::Utils::ToString(VrelDR::kTargetGuest), "guest");
  EXPECT_EQ(VrelDR::Utils::ToString(static_cast<VrelDR::DRProtectedTargetType>(9)), "unknown");
}

TEST(Texts, EveryCodeButSuccessHasOne) {
  const VrelDR::DRErrRecorder recorder;
  for (const int code : {401, 404, 407, 410, 411, 412, 413, 414, 415, 416, 621, 622, 634}) {
    EXPECT_NE(recorder.GetErrCodeStr(code), "") << code;
  }
  EXPECT_EQ(recorder.GetErrCodeStr(0), "");
  EXPECT_EQ(recorder.GetErrCodeStr(1), "");
}

TEST(SqliteValues, ValuesReadAsTheOtherKind) {
  SqliteValueList row;
  row.AddValue("number", SqliteValue(-42));
  row.AddValue("text", SqliteValue("17 and more"));
  row.AddValue("flag", SqliteValue(true));
  std::string text;
  int number = 0;
  EXPECT_TRUE(row.GetValue("number", text));
  EXPECT_EQ(text, "-42");
  EXPECT_TRUE(row.GetValue("text", number));
  EXPECT_EQ(number, 17);
  EXPECT_TRUE(row.GetValue("flag", number));
  EXPECT_EQ(number, 1);
}

TEST(SqliteValues, ACopiedRowKeepsItsOwnValuesAndNames) {
  SqliteValueList row;
  row.AddValue("a", SqliteValue(1));
  SqliteValueList copy = row;
  copy.AddValue("b", SqliteValue(2));
  copy.ValueAt(0).SetInteger(9);
  EXPECT_EQ(row.Size(), 1u);
  EXPECT_EQ(row.ValueAt(0).AsInteger(), 1);
  EXPECT_EQ(copy.NameAt(1), "b");
  EXPECT_TRUE(SqliteValueList().Empty());
}

TEST(SnapshotOrder, IsByTimeThenByTheOrderOfTaking) {
  Snapshot early;
  early.create_time = 10;
  early.sequence = 9;
  Snapshot late;
  late.create_time = 11;
  late.sequence = 1;
  EXPECT_TRUE(late > early);
  EXPECT_FALSE(early > late);
  late.create_time = 10;
  EXPECT_TRUE(early > late);
  EXPECT_FALSE(early > early);
}

}  // namespace
}  // namespace host_test
