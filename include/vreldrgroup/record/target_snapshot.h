#pragma once

#include <json/value.h>
#include <vreldr/target.h>
#include <vreldrcore/sqlite_record.h>

#include <string>
#include <vector>

#include "vreldrgroup/export.h"

namespace VrelDRGroup {

// One snapshot of one target: a member of a group snapshot.
class VRELDRGROUP_API TargetSnapshot : public VrelDRCore::SqliteRecord {
 public:
  TargetSnapshot(const VrelDR::Target& snapTarget, const std::string& tsnapId);

  VrelDRCore::SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const override;
  // A row without "target_type" leaves the target with type 0, which is not valid.
  bool FromSqliteValues(const VrelDRCore::SqliteValueList& values) override;
  std::vector<std::string> ListSqliteField() const override;

  // Whether the record names a snapshot of a target: both identifiers there, the type from 1 to 3.
  virtual bool IsValid() const;

  // Takes over the members that are present; the others stay. Always true.
  virtual bool FromJson(const Json::Value& json);
  // {"target": the target, "tsnap_id": text}
  virtual Json::Value ToJson() const;

  VrelDR::Target target;
  std::string tsnap_id;
};

// A target snapshot tied to its group snapshot: a row of "target_snap_list".
class VRELDRGROUP_API TargetSnapshotRelationship : public TargetSnapshot {
 public:
  TargetSnapshotRelationship();
  TargetSnapshotRelationship(const TargetSnapshot& tsnap, const std::string& gsnapId);

  // "gsnap_id" comes after the target snapshot's columns wherever it stands in `fields`.
  VrelDRCore::SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const override;
  bool FromSqliteValues(const VrelDRCore::SqliteValueList& values) override;
  std::vector<std::string> ListSqliteField() const override;
  bool IsValid() const override;
  bool FromJson(const Json::Value& json) override;
  Json::Value ToJson() const override;

  std::string gsnap_id;
};

}  // namespace VrelDRGroup
