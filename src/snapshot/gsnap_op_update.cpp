// The catalogue functions that write: see gsnap_op.cpp for those that read.
#include <vreldr/target_operation.h>
#include <vreldrcore/json.h>

#include "log.h"
#include "vreldrgroup/db.h"
#include "vreldrgroup/snapshot/gsnap_op.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_op.cpp";

using VrelDRCore::SqliteEqual;
using VrelDRCore::UpdateCommand;

}  // namespace

bool GroupSnapDBInit(const std::string& groupId, const std::string& snapMetaDir) {
  if (groupId.empty() || snapMetaDir.empty()) {
    LOG_LONG_ERR("empty group id [%s] or snap meta dir [%s].", groupId.c_str(),
                 snapMetaDir.c_str());
    return false;
  }
  return DRGroupDB::Init(snapMetaDir, groupId, true);
}

void GroupSnapMetaClear(const std::string& snapMetaDir, const std::string& groupId) {
  DRGroupDB::Clear(snapMetaDir, groupId);
}

int SnapLastVerGet(const std::string& targetId, std::string& snapId) {
  const std::vector<VrelDR::Operation::Snapshot> snapshots =
      VrelDR::TargetOperation(VrelDR::kTargetLun, targetId).ListSnapshots();
  if (snapshots.empty()) return -1;
  const VrelDR::Operation::Snapshot* best = &snapshots.front();
  for (const VrelDR::Operation::Snapshot& snapshot : snapshots) {
    if (snapshot > *best) best = &snapshot;
  }
  snapId = best->snap_id;
  return 0;
}

bool GsnapshotSet(const std::string& gsnapId, const GsnapMeta& meta) {
  if (gsnapId.empty()) {
    LOG_LONG_ERR("Empty gnapshotId to edit");
    return false;
  }
  const std::string groupId = Utils::ParseGroupId(gsnapId);
  if (groupId.empty()) {
    LOG_LONG_ERR("Empty groupId from [%s]", gsnapId.c_str());
    return false;
  }
  Gsnapshot current("");
  if (!GsnapshotGet(gsnapId, current)) return false;
  UpdateCommand command;
  command.SetTable(GsnapMetadataSqliteTable());
  // A copy, as the caller's record may be a whole group snapshot with columns of its own.
  command.SetFieldValues(GsnapMeta(meta).ToSqliteRecord());
  command.SetCondition(SqliteEqual("gsnap_id", gsnapId));
  return DRGroupDB::GetRef(groupId).UpdateRecord(command);
}

bool GroupSnapStatusSet(const std::string& groupId, const std::string& gsnapId,
                        GsnapStatus status) {
  if (groupId.empty() || gsnapId.empty()) {
    LOG_LONG_ERR("empty groupId[%s] / gsnapId[%s]", groupId.c_str(), gsnapId.c_str());
    return false;
  }
  const DRGroupDB db = DRGroupDB::GetRef(groupId);
  if (!db.IsExisted()) {
    LOG_LONG_ERR("group db [%s] is not existed", groupId.c_str());
    return false;
  }
  UpdateCommand command;
  command.SetTable(GsnapMetadataSqliteTable());
  command.AddFieldValue<int>("status", status);
  command.SetCondition(SqliteEqual("gsnap_id", gsnapId));
  return db.UpdateRecord(command);
}

bool TargetReplicaRenew(const std::string& dbDir, const Json::Value& replicaMap) {
  if (!replicaMap.isObject()) return true;
  bool ok = true;
  for (const std::string& srcTargetId : replicaMap.getMemberNames()) {
    UpdateCommand command;
    command.SetTable(TargetReplicaListSqliteTable());
    command.AddFieldValue<std::string>("dst_target_id",
                                       VrelDRCore::JsonUtil::AsText(VrelDRCore::JsonUtil::Member(
                                           replicaMap[srcTargetId], "dst_target_id")));
    command.SetCondition(SqliteEqual("src_target_id", srcTargetId));
    if (!DRGroupDB::Get(dbDir).UpdateRecord(command)) {
      LOG_SHORT_ERR("Failed to update record to target_replica_list table of path [%s]",
                    dbDir.c_str());
      ok = false;
    }
  }
  return ok;
}

bool TargetReplicaClean(const std::string& dbDir) {
  VrelDRCore::DeleteCommand command;
  command.SetTable(TargetReplicaListSqliteTable());
  command.DeleteAll();
  if (!DRGroupDB::Get(dbDir).DeleteRecord(command)) {
    LOG_SHORT_ERR("Failed to delete all records in target_replica_list table of path [%s]",
                  dbDir.c_str());
    return false;
  }
  return true;
}

}  // namespace VrelDRGroup::Operation
