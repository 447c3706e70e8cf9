#pragma once

#include <json/value.h>
#include <vreldrcore/sqlite_record.h>

#include <string>
#include <vector>

#include "vreldrgroup/export.h"

namespace VrelDRGroup {

// Which target is replicated to which.
class VRELDRGROUP_API TargetReplica : public VrelDRCore::SqliteRecord {
 public:
  TargetReplica(const std::string& srcTargetId, const std::string& dstTargetId);

  VrelDRCore::SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const override;
  bool FromSqliteValues(const VrelDRCore::SqliteValueList& values) override;
  std::vector<std::string> ListSqliteField() const override;

  // Whether both target identifiers are there.
  virtual bool IsValid() const;

  // Takes over the members that are present; the others stay. Always true.
  virtual bool FromJson(const Json::Value& json);
  // {"src_target_id": text, "dst_target_id": text}
  virtual Json::Value ToJson() const;

  std::string src_target_id;
  std::string dst_target_id;
};

// A target replica tied to its group snapshot: a row of "target_replica_list".
class VRELDRGROUP_API TargetReplicaRelationship : public TargetReplica {
 public:
  TargetReplicaRelationship();
  TargetReplicaRelationship(const TargetReplica& replica, const std::string& gsnapId);

  // "gsnap_id" comes after the replica's columns wherever it stands in `fields`.
  VrelDRCore::SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const override;
  bool FromSqliteValues(const VrelDRCore::SqliteValueList& values) override;
  std::vector<std::string> ListSqliteField() const override;
  bool IsValid() const override;
  bool FromJson(const Json::Value& json) override;
  Json::Value ToJson() const override;

  std::string gsnap_id;
};

}  // namespace VrelDRGroup
