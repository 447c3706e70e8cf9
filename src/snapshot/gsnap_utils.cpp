#include "vreldrgroup/snapshot/gsnap_utils.h"

#include <vreldrcore/json.h>

#include <cstdlib>

#include "error_code.h"
#include "log.h"
#include "vreldrgroup/db.h"

namespace VrelDRGroup::Utils {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_utils";
constexpr std::string_view kSeparator = "-gsnap-";

bool InsertRow(const VrelDRCore::SqliteTableHandler& table, const VrelDRCore::SqliteRecord& record,
               const std::string& dbDir) {
  VrelDRCore::InsertCommand command;
  command.SetTable(table);
  command.SetFieldValues(record.ToSqliteRecord());
  return DRGroupDB::Get(dbDir).InsertRecord(command);
}

}  // namespace

std::string ToGsnapId(const std::string& groupId, long time) {
  if (time == 0 || groupId.empty()) return {};
  return groupId + std::string(kSeparator) + std::to_string(time);
}

std::string ParseGroupId(const std::string& gsnapId) {
  const std::size_t end = gsnapId.rfind(kSeparator);
  return end == std::string::npos ? std::string() : gsnapId.substr(0, end);
}

long ParseSnapshotTime(const std::string& gsnapId) {
  const std::size_t end = gsnapId.rfind(kSeparator);
  if (end == std::string::npos) return 0;
  const char* text = gsnapId.c_str() + end + kSeparator.size();
  return static_cast<int>(std::strtol(text, nullptr, 10));
}

bool InitDRGroupDB(const std::string& dbDir, const std::string& groupId, int& err, bool relink) {
  if (dbDir.empty()) {
    err = kErrBadArgument;
    return false;
  }
  if (!DRGroupDB::Init(dbDir, groupId, relink)) {
    err = kErrDatabase;
    return false;
  }
  return true;
}

void InitGroupSnapshot(Gsnapshot& gsnap, const std::string& tag, const GsnapMeta& meta) {
  gsnap.gsnap_id.clear();
  gsnap.tag = tag;
  gsnap.desc = meta.desc;
  gsnap.is_user_locked = meta.is_user_locked;
  gsnap.cw_type = meta.cw_type;
  gsnap.status = kGsnapReady;
}

bool SetGroupSnapRecord(const Gsnapshot& gsnap, const std::string& dbDir, int& err) {
  if (gsnap.gsnap_id.empty() || gsnap.gsnap_time < 1) {
    LOG_LONG_ERR("Invalid gsnapshot [%s]", VrelDRCore::JsonUtil::ToString(gsnap.ToJson()).c_str());
    err = kErrBadArgument;
    return false;
  }
  if (!InsertRow(GsnapMetadataSqliteTable(), gsnap, dbDir)) {
    err = kErrDatabase;
    return false;
  }
  return true;
}

bool SetTargetSnapshotRecord(const TargetSnapshot& tsnap, const std::string& gsnapId,
                             const std::string& dbDir) {
  return InsertRow(TargetSnapListSqliteTable(), TargetSnapshotRelationship(tsnap, gsnapId), dbDir);
}

bool SetTargetReplicaRecord(const TargetReplica& replica, const std::string& gsnapId,
                            const std::string& dbDir) {
  return InsertRow(TargetReplicaListSqliteTable(), TargetReplicaRelationship(replica, gsnapId),
                   dbDir);
}

}  // namespace VrelDRGroup::Utils
