#include "vreldrgroup/snapshot/gsnap_delete.h"

#include <vreldr/target_operation.h>
#include <vreldrcore/json.h>

#include "error_code.h"
#include "log.h"
#include "vreldrgroup/db.h"
#include "vreldrgroup/snapshot/gsnap_op.h"
#include "vreldrgroup/snapshot/gsnap_utils.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_delete";

// Removes the rows of `table` whose `column` holds `value`, in the catalogue of the group that
// `gsnapId` belongs to.
bool DeleteRows(const std::string& gsnapId, const VrelDRCore::SqliteTableHandler& table,
                const std::string& column, const std::string& value) {
  return DRGroupDB::GetRef(Utils::ParseGroupId(gsnapId))
      .DeleteRecord(table, VrelDRCore::SqliteEqual(column, value));
}

}  // namespace

GsnapshotDelete::GsnapshotDelete(const std::string& gsnapId) : gsnapId_(gsnapId), info_("") {}

GsnapshotDelete::~GsnapshotDelete() = default;

bool GsnapshotDelete::Run() {
  SetErr(kErrNotCompleted);
  if (gsnapId_.empty()) {
    LOG_LONG_ERR("Empty gsnapId");
    SetErr(kErrBadArgument);
    return false;
  }
  // A group snapshot that cannot be read has no targets to ask, but may have rows to remove.
  if (GsnapshotInfoGet(gsnapId_, info_) && !DeleteTargetSnapshots()) {
    LOG_LONG_WARN("Failed to delete target snapshots.");
    return false;
  }
  // The target snapshots are gone: what stays of the rows is for the repair of the catalogue.
  if (!DeleteGroupSnapRecord()) LOG_LONG_WARN("Failed to delete gsnapshot records.");
  if (!DeleteTargetSnapshotRecords()) LOG_LONG_WARN("Failed to delete target snap records.");
  if (!DeleteTargetReplicaRecords()) LOG_LONG_WARN("Failed to delete target replica records.");
  SetErr(kErrNone);
  return true;
}

bool GsnapshotDelete::DeleteTargetSnapshots() const {
  bool ok = true;
  for (const TargetSnapshot& tsnap : info_.target_snapshots) {
    if (!DeleteTargetSnapshot(tsnap)) ok = false;
  }
  return ok;
}

bool GsnapshotDelete::DeleteTargetSnapshot(const TargetSnapshot& tsnap) const {
  if (!tsnap.IsValid()) {
    SetErr(kErrBadArgument);
    return false;
  }
  const VrelDR::TargetOperation op(tsnap.target);
  if (op.IsSnapshotExisted(tsnap.tsnap_id) && !op.DeleteSnapshot(tsnap.tsnap_id)) {
    LOG_LONG_ERR("Failed to delete target snapshot [%s]",
                 VrelDRCore::JsonUtil::ToString(tsnap.ToJson()).c_str());
    SetErr(op.GetErrCode(), op.GetErrMsg());
    return false;
  }
  if (!DeleteRows(gsnapId_, TargetSnapListSqliteTable(), "tsnap_id", tsnap.tsnap_id)) {
    LOG_LONG_WARN("Failed to delete target snapshot records with tsnapId[%s]",
                  tsnap.tsnap_id.c_str());
  }
  return true;
}

bool GsnapshotDelete::DeleteGroupSnapRecord() const {
  if (gsnapId_.empty()) return true;
  if (!DeleteRows(gsnapId_, GsnapMetadataSqliteTable(), "gsnap_id", gsnapId_)) {
    SetErr(kErrDatabase);
    return false;
  }
  return true;
}

bool GsnapshotDelete::DeleteTargetSnapshotRecords() const {
  return DeleteParts(TargetSnapListSqliteTable(), __func__);
}

bool GsnapshotDelete::DeleteTargetReplicaRecords() const {
  return DeleteParts(TargetReplicaListSqliteTable(), __func__);
}

// The log line speaks of target snapshots for both tables.
bool GsnapshotDelete::DeleteParts(const VrelDRCore::SqliteTableHandler& table,
                                  const char* function) const {
  if (gsnapId_.empty() || DeleteRows(gsnapId_, table, "gsnap_id", gsnapId_)) return true;
  VRELDRGROUP_LOG_AS(LOG_ERR, "ERR", function,
                     "Failed to delete target snapshots with gsnapId [%s]", gsnapId_.c_str());
  SetErr(kErrDatabase);
  return false;
}

}  // namespace VrelDRGroup::Operation
