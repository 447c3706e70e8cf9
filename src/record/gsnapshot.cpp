#include "vreldrgroup/record/gsnapshot.h"

#include <vreldr/utils.h>
#include <vreldrcore/json.h>

#include <ctime>

#include "vreldrgroup/snapshot/gsnap_utils.h"

namespace VrelDRGroup {

using VrelDR::Utils::ParseJsonValueFromField;
using VrelDRCore::SqliteValueList;

GsnapMeta::GsnapMeta(const std::string& description, bool isUserLocked, GsnapCwType cwType)
    : desc(description), is_user_locked(isUserLocked), cw_type(cwType) {}

SqliteValueList GsnapMeta::ToSqliteValues(const std::vector<std::string>& fields) const {
  SqliteValueList values;
  for (const std::string& field : fields) {
    if (field == "desc") {
      values.AddValue(field, desc);
    } else if (field == "is_user_locked") {
      values.AddValue(field, is_user_locked);
    } else if (field == "cw_type") {
      values.AddValue(field, static_cast<int>(cw_type));
    }
  }
  return values;
}

bool GsnapMeta::FromSqliteValues(const SqliteValueList& values) {
  if (values.Empty()) return true;
  int cwType = kCwUnspecified;
  const bool hasDesc = values.GetValue("desc", desc);
  const bool hasLock = values.GetValue("is_user_locked", is_user_locked);
  const bool hasCwType = values.GetValue("cw_type", cwType);
  cw_type = static_cast<GsnapCwType>(cwType);
  return hasDesc || hasLock || hasCwType;
}

std::vector<std::string> GsnapMeta::ListSqliteField() const {
  return {"desc", "is_user_locked", "cw_type"};
}

bool GsnapMeta::FromJson(const Json::Value& json) {
  if (json.isNull()) return true;
  int cwType = kCwUnspecified;
  ParseJsonValueFromField(json, "desc", desc);
  ParseJsonValueFromField(json, "is_user_locked", is_user_locked);
  ParseJsonValueFromField(json, "cw_type", cwType);
  cw_type = static_cast<GsnapCwType>(cwType);
  return true;
}

Json::Value GsnapMeta::ToJson() const {
  Json::Value json(Json::objectValue);
  json["desc"] = desc;
  json["is_user_locked"] = is_user_locked;
  json["cw_type"] = static_cast<int>(cw_type);
  return json;
}

Gsnapshot::Gsnapshot(const std::string& gsnapId)
    : GsnapMeta("", false, kCwUnspecified), gsnap_id(gsnapId) {}

SqliteValueList Gsnapshot::ToSqliteValues(const std::vector<std::string>& fields) const {
  SqliteValueList values = GsnapMeta::ToSqliteValues(fields);
  for (const std::string& field : fields) {
    if (field == "gsnap_id") {
      values.AddValue(field, gsnap_id);
    } else if (field == "tag") {
      values.AddValue(field, tag);
    } else if (field == "gsnap_time") {
      values.AddValue(field, gsnap_time);
    } else if (field == "status") {
      values.AddValue(field, static_cast<int>(status));
    }
  }
  return values;
}

bool Gsnapshot::FromSqliteValues(const SqliteValueList& values) {
  if (values.Empty()) return true;
  const bool hasMeta = GsnapMeta::FromSqliteValues(values);
  unsigned int time = 0;
  int statusNumber = kGsnapUnknown;
  const bool hasId = values.GetValue("gsnap_id", gsnap_id);
  const bool hasTag = values.GetValue("tag", tag);
  const bool hasTime = values.GetValue("gsnap_time", time);
  const bool hasStatus = values.GetValue("status", statusNumber);
  gsnap_time = time;
  status = static_cast<GsnapStatus>(statusNumber);
  return hasMeta || hasId || hasTag || hasTime || hasStatus;
}

std::vector<std::string> Gsnapshot::ListSqliteField() const {
  std::vector<std::string> fields = GsnapMeta::ListSqliteField();
  fields.insert(fields.end(), {"gsnap_id", "tag", "gsnap_time", "status"});
  return fields;
}

bool Gsnapshot::FromJson(const Json::Value& json) {
  if (json.isNull()) return true;
  GsnapMeta::FromJson(json);
  long time = 0;
  int statusNumber = kGsnapUnknown;
  ParseJsonValueFromField(json, "tag", tag);
  ParseJsonValueFromField(json, "gsnap_id", gsnap_id);
  ParseJsonValueFromField(json, "gsnap_time", time);
  ParseJsonValueFromField(json, "status", statusNumber);
  gsnap_time = time;
  status = static_cast<GsnapStatus>(statusNumber);
  return true;
}

Json::Value Gsnapshot::ToJson() const {
  Json::Value json = GsnapMeta::ToJson();
  json["gsnap_id"] = gsnap_id;
  json["tag"] = tag;
  json["gsnap_time"] = static_cast<Json::Int64>(gsnap_time);
  json["gsnap_time_str"] = VrelDR::Utils::ToString(gsnap_time);
  json["gsnap_name"] = TimestampToGMTStr(gsnap_time);
  json["status"] = static_cast<int>(status);
  return json;
}

GsnapshotInfo::GsnapshotInfo(const std::string& gsnapId) : Gsnapshot(gsnapId) {}

GsnapshotInfo::GsnapshotInfo(const Gsnapshot& gsnapshot) : Gsnapshot(gsnapshot) {}

bool GsnapshotInfo::FromJson(const Json::Value& json) {
  Gsnapshot::FromJson(json);
  const Json::Value list = VrelDRCore::JsonUtil::Member(json, "target_snapshots");
  if (!list.isArray()) return true;
  for (const Json::Value& element : list) {
    TargetSnapshot tsnap(VrelDR::Target(), "");
    if (tsnap.FromJson(element) && tsnap.IsValid()) target_snapshots.push_back(tsnap);
  }
  return true;
}

Json::Value GsnapshotInfo::ToJson() const {
  Json::Value json = Gsnapshot::ToJson();
  Json::Value& list = json["target_snapshots"] = Json::Value(Json::arrayValue);
  for (const TargetSnapshot& tsnap : target_snapshots) list.append(tsnap.ToJson());
  return json;
}

std::vector<VrelDR::Target> GsnapshotInfo::ListTargets() const {
  std::vector<VrelDR::Target> targets;
  targets.reserve(target_snapshots.size());
  for (const TargetSnapshot& tsnap : target_snapshots) targets.push_back(tsnap.target);
  return targets;
}

std::string ToString(GsnapStatus status) {
  switch (status) {
    case kGsnapUnknown:
      return "unknown";
    case kGsnapReady:
      return "ready";
    case kGsnapBad:
      return "bad";
  }
  return "unknown [" + std::to_string(static_cast<int>(status)) + "]";
}

std::string TimestampToGMTStr(long time) {
  struct tm utc = {};
  if (gmtime_r(&time, &utc) == nullptr) return {};
  char text[32];
  return {text, strftime(text, sizeof(text), "GMT-%Y.%m.%d-%H.%M.%S", &utc)};
}

std::string GetGroupIdByGsnapId(const std::string& gsnapId) {
  return Utils::ParseGroupId(gsnapId);
}

long GetSnapTimeByGsnapId(const std::string& gsnapId) {
  return Utils::ParseSnapshotTime(gsnapId);
}

}  // namespace VrelDRGroup
