#include "vreldrgroup/record/target_replica.h"

#include <vreldr/utils.h>

namespace VrelDRGroup {

using VrelDR::Utils::ParseJsonValueFromField;
using VrelDRCore::SqliteValueList;

TargetReplica::TargetReplica(const std::string& srcTargetId, const std::string& dstTargetId)
    : src_target_id(srcTargetId), dst_target_id(dstTargetId) {}

SqliteValueList TargetReplica::ToSqliteValues(const std::vector<std::string>& fields) const {
  SqliteValueList values;
  for (const std::string& field : fields) {
    if (field == "src_target_id") {
      values.AddValue(field, src_target_id);
    } else if (field == "dst_target_id") {
      values.AddValue(field, dst_target_id);
    }
  }
  return values;
}

bool TargetReplica::FromSqliteValues(const SqliteValueList& values) {
  if (values.Empty()) return true;
  const bool hasSource = values.GetValue("src_target_id", src_target_id);
  return values.GetValue("dst_target_id", dst_target_id) || hasSource;
}

std::vector<std::string> TargetReplica::ListSqliteField() const {
  return {"src_target_id", "dst_target_id"};
}

bool TargetReplica::IsValid() const {
  return !src_target_id.empty() && !dst_target_id.empty();
}

bool TargetReplica::FromJson(const Json::Value& json) {
  ParseJsonValueFromField(json, "src_target_id", src_target_id);
  ParseJsonValueFromField(json, "dst_target_id", dst_target_id);
  return true;
}

Json::Value TargetReplica::ToJson() const {
  Json::Value json(Json::objectValue);
  json["src_target_id"] = src_target_id;
  json["dst_target_id"] = dst_target_id;
  return json;
}

TargetReplicaRelationship::TargetReplicaRelationship() : TargetReplica("", "") {}

TargetReplicaRelationship::TargetReplicaRelationship(const TargetReplica& replica,
                                                     const std::string& gsnapId)
    : TargetReplica(replica), gsnap_id(gsnapId) {}

SqliteValueList TargetReplicaRelationship::ToSqliteValues(
    const std::vector<std::string>& fields) const {
  SqliteValueList values = TargetReplica::ToSqliteValues(fields);
  for (const std::string& field : fields) {
    if (field == "gsnap_id") values.AddValue(field, gsnap_id);
  }
  return values;
}

bool TargetReplicaRelationship::FromSqliteValues(const SqliteValueList& values) {
  if (values.Empty()) return true;
  const bool hasBase = TargetReplica::FromSqliteValues(values);
  return values.GetValue("gsnap_id", gsnap_id) || hasBase;
}

std::vector<std::string> TargetReplicaRelationship::ListSqliteField() const {
  std::vector<std::string> fields = TargetReplica::ListSqliteField();
  fields.emplace_back("gsnap_id");
  return fields;
}

bool TargetReplicaRelationship::IsValid() const {
  return TargetReplica::IsValid() && !gsnap_id.empty();
}

bool TargetReplicaRelationship::FromJson(const Json::Value& json) {
  TargetReplica::FromJson(json);
  ParseJsonValueFromField(json, "gsnap_id", gsnap_id);
  return true;
}

Json::Value TargetReplicaRelationship::ToJson() const {
  Json::Value json = TargetReplica::ToJson();
  json["gsnap_id"] = gsnap_id;
  return json;
}

}  // namespace VrelDRGroup
