#pragma once

#include <json/value.h>
#include <vreldr/target.h>
#include <vreldrcore/sqlite_record.h>

#include <string>
#include <vector>

#include "vreldrgroup/export.h"
#include "vreldrgroup/record/target_replica.h"
#include "vreldrgroup/record/target_snapshot.h"

namespace VrelDRGroup {

// Whether a group snapshot can be used. Kept on disk: never change a value.
enum GsnapStatus : int {
  kGsnapUnknown = 0,  // some target could not be asked
  kGsnapReady = 1,    // every target snapshot was there when last looked at
  kGsnapBad = 2,      // a target or a target snapshot is gone
};

// How consistent the targets' snapshots are. Kept on disk: never change a value. Other numbers are
// kept as they are.
enum GsnapCwType : int {
  kCwUnspecified = 0,
  kCwCrashConsistent = 1,
  kCwApplicationConsistent = 2,
};

// What a user may say of a group snapshot.
class VRELDRGROUP_API GsnapMeta : public VrelDRCore::SqliteRecord {
 public:
  GsnapMeta(const std::string& description, bool isUserLocked, GsnapCwType cwType);

  VrelDRCore::SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const override;
  bool FromSqliteValues(const VrelDRCore::SqliteValueList& values) override;
  std::vector<std::string> ListSqliteField() const override;

  // Takes over "desc" and "is_user_locked" when present; "cw_type" always, as 0 when it is missing.
  // JSON null changes nothing. Always true.
  virtual bool FromJson(const Json::Value& json);
  // {"desc": text, "is_user_locked": bool, "cw_type": number}
  virtual Json::Value ToJson() const;

  std::string desc;
  bool is_user_locked;
  GsnapCwType cw_type;
};

// A group snapshot: a row of "gsnap_meta".
class VRELDRGROUP_API Gsnapshot : public GsnapMeta {
 public:
  explicit Gsnapshot(const std::string& gsnapId);

  // The values of GsnapMeta come first, whatever the order of `fields`.
  VrelDRCore::SqliteValueList ToSqliteValues(const std::vector<std::string>& fields) const override;
  // "gsnap_time" is read as 32 bits: later times than 4294967295 do not come back as stored.
  bool FromSqliteValues(const VrelDRCore::SqliteValueList& values) override;
  std::vector<std::string> ListSqliteField() const override;

  // As GsnapMeta; "tag" and "gsnap_id" when present, "gsnap_time" and "status" always, as 0 when
  // they are missing.
  bool FromJson(const Json::Value& json) override;
  // GsnapMeta's members with "gsnap_id", "tag", "gsnap_time", "gsnap_time_str" (decimal text),
  // "gsnap_name" (the time as TimestampToGMTStr gives it) and "status".
  Json::Value ToJson() const override;

  std::string gsnap_id;
  std::string tag;      // the group's identifier
  long gsnap_time = 0;  // seconds since the epoch
  GsnapStatus status = kGsnapUnknown;
};

// A group snapshot with its parts.
class VRELDRGROUP_API GsnapshotInfo : public Gsnapshot {
 public:
  explicit GsnapshotInfo(const std::string& gsnapId);
  explicit GsnapshotInfo(const Gsnapshot& gsnapshot);

  // As Gsnapshot; the valid elements of an array "target_snapshots" are appended.
  bool FromJson(const Json::Value& json) override;
  // Gsnapshot's members with the array "target_snapshots". The replicas are not written.
  Json::Value ToJson() const override;

  // The target of every target snapshot, in their order.
  std::vector<VrelDR::Target> ListTargets() const;

  std::vector<TargetSnapshot> target_snapshots;
  std::vector<TargetReplica> target_replicas;
};

// "unknown", "ready", "bad"; "unknown [N]" for another number N.
VRELDRGROUP_API std::string ToString(GsnapStatus status);

// The display name of a time, such as GMT-1970.01.01-00.00.00; empty for a time that
// the C library cannot turn into a date.
VRELDRGROUP_API std::string TimestampToGMTStr(long time);

// The two parts of a group snapshot identifier; empty and 0 when it is not one.
VRELDRGROUP_API std::string GetGroupIdByGsnapId(const std::string& gsnapId);
VRELDRGROUP_API long GetSnapTimeByGsnapId(const std::string& gsnapId);

}  // namespace VrelDRGroup
