#include "vreldrgroup/record/target_snapshot.h"

#include <vreldr/utils.h>
#include <vreldrcore/json.h>

#include <utility>

namespace VrelDRGroup {

using VrelDR::Utils::ParseJsonValueFromField;
using VrelDRCore::SqliteValueList;

TargetSnapshot::TargetSnapshot(const VrelDR::Target& snapTarget, const std::string& tsnapId)
    : target(snapTarget), tsnap_id(tsnapId) {}

SqliteValueList TargetSnapshot::ToSqliteValues(const std::vector<std::string>& fields) const {
  SqliteValueList values;
  for (const std::string& field : fields) {
    if (field == "target_id") {
      values.AddValue(field, target.GetId());
    } else if (field == "target_type") {
      values.AddValue(field, target.GetType());
    } else if (field == "tsnap_id") {
      values.AddValue(field, tsnap_id);
    }
  }
  return values;
}

bool TargetSnapshot::FromSqliteValues(const SqliteValueList& values) {
  if (values.Empty()) return true;
  std::string targetId;
  int targetType = 0;
  const bool hasId = values.GetValue("target_id", targetId);
  const bool hasType = values.GetValue("target_type", targetType);
  const bool hasSnapshot = values.GetValue("tsnap_id", tsnap_id);
  if (hasId) target.SetId(std::move(targetId));
  target.SetType(targetType);
  return hasId || hasType || hasSnapshot;
}

std::vector<std::string> TargetSnapshot::ListSqliteField() const {
  return {"target_id", "target_type", "tsnap_id"};
}

bool TargetSnapshot::IsValid() const {
  return !target.GetId().empty() && target.GetType() >= VrelDR::kTargetLun &&
         target.GetType() <= VrelDR::kTargetGuest && !tsnap_id.empty();
}

bool TargetSnapshot::FromJson(const Json::Value& json) {
  if (VrelDRCore::JsonUtil::HasMember(json, "target")) target.FromJson(json["target"]);
  ParseJsonValueFromField(json, "tsnap_id", tsnap_id);
  return true;
}

Json::Value TargetSnapshot::ToJson() const {
  Json::Value json(Json::objectValue);
  json["target"] = target.ToJson();
  json["tsnap_id"] = tsnap_id;
  return json;
}

TargetSnapshotRelationship::TargetSnapshotRelationship() : TargetSnapshot(VrelDR::Target(), "") {}

TargetSnapshotRelationship::TargetSnapshotRelationship(const TargetSnapshot& tsnap,
                                                       const std::string& gsnapId)
    : TargetSnapshot(tsnap), gsnap_id(gsnapId) {}

SqliteValueList TargetSnapshotRelationship::ToSqliteValues(
    const std::vector<std::string>& fields) const {
  SqliteValueList values = TargetSnapshot::ToSqliteValues(fields);
  for (const std::string& field : fields) {
    if (field == "gsnap_id") values.AddValue(field, gsnap_id);
  }
  return values;
}

bool TargetSnapshotRelationship::FromSqliteValues(const SqliteValueList& values) {
  if (values.Empty()) return true;
  const bool hasBase = TargetSnapshot::FromSqliteValues(values);
  return values.GetValue("gsnap_id", gsnap_id) || hasBase;
}

std::vector<std::string> TargetSnapshotRelationship::ListSqliteField() const {
  std::vector<std::string> fields = TargetSnapshot::ListSqliteField();
  fields.emplace_back("gsnap_id");
  return fields;
}

bool TargetSnapshotRelationship::IsValid() const {
  return TargetSnapshot::IsValid() && !gsnap_id.empty();
}

bool TargetSnapshotRelationship::FromJson(const Json::Value& json) {
  TargetSnapshot::FromJson(json);
  ParseJsonValueFromField(json, "gsnap_id", gsnap_id);
  return true;
}

Json::Value TargetSnapshotRelationship::ToJson() const {
  Json::Value json = TargetSnapshot::ToJson();
  json["gsnap_id"] = gsnap_id;
  return json;
}

}  // namespace VrelDRGroup
