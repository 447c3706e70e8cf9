#include "vreldrgroup/snapshot/gsnap_repair.h"

#include <vreldr/target_operation.h>
#include <vreldrcore/json.h>

#include <utility>

#include "error_code.h"
#include "log.h"
#include "vreldrgroup/db.h"
#include "vreldrgroup/snapshot/gsnap_delete.h"
#include "vreldrgroup/snapshot/gsnap_op.h"

namespace VrelDRGroup::Operation {

namespace {

constexpr char kUnit[] = "snapshot/gsnap_repair.cpp";

using Reason = RepairVerdict::Reason;
using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteValueList;

std::string Text(const VrelDR::Target& target) {
  return VrelDRCore::JsonUtil::ToString(target.ToJson());
}

}  // namespace

GsnapshotRepair::GsnapshotRepair(const std::string& groupId) : groupId_(groupId) {}

GsnapshotRepair::~GsnapshotRepair() = default;

bool GsnapshotRepair::Run(const std::string& dbDir) {
  SetErr(kErrNotCompleted);
  if (groupId_.empty()) {
    SetErr(kErrBadArgument);
    LOG_LONG_ERR("empty groupId");
    return false;
  }
  if (!dbDir.empty() && !DRGroupDB::Init(dbDir, groupId_, true)) return false;
  if (!DoRepair()) {
    LOG_LONG_ERR("Failed to repair snapshots of group[%s]", groupId_.c_str());
    return false;
  }
  SetErr(kErrNone);
  return true;
}

bool GsnapshotRepair::DoRepair() {
  if (!InitGroupSnapDict() || !InitTargetSnapDict()) return false;
  RepairTargetSnapshotTable();
  RepairGroupSnapMetaTable();
  return true;
}

bool GsnapshotRepair::InitGroupSnapDict() {
  if (groupId_.empty()) {
    LOG_LONG_ERR("Empty groupId");
    return false;
  }
  SelectCommand command;
  command.SetTable(GsnapMetadataSqliteTable());
  command.AddField("gsnap_id");
  command.AddField("status");
  std::string gsnapId;
  if (!DRGroupDB::GetRef(groupId_).SelectEach(command, [&](const SqliteValueList& row) {
        int status = kGsnapUnknown;
        if (row.GetValue("gsnap_id", gsnapId)) {
          row.GetValue("status", status);
          groupSnapDict_[gsnapId] = static_cast<GsnapStatus>(status);
        }
        return true;
      })) {
    LOG_LONG_ERR("Failed to select records of drgroup db[%s]", groupId_.c_str());
    return false;
  }
  return true;
}

bool GsnapshotRepair::InitTargetSnapDict() {
  if (groupId_.empty()) {
    LOG_LONG_ERR("Empty groupId");
    return false;
  }
  SelectCommand command;
  command.SetTable(TargetSnapListSqliteTable());
  command.SelectAll();
  bool readable = true;
  std::string gsnapId;
  // Rows of one group snapshot mostly follow each other: look up only when it changes.
  auto entry = targetSnapDict_.end();
  if (!DRGroupDB::GetRef(groupId_).SelectEach(command, [&](const SqliteValueList& row) {
        TargetSnapshot tsnap(VrelDR::Target(), "");
        readable = row.GetValue("gsnap_id", gsnapId) && tsnap.FromSqliteValues(row);
        if (!readable) return false;
        if (entry == targetSnapDict_.end() || entry->first != gsnapId) {
          entry = targetSnapDict_.try_emplace(targetSnapDict_.end(), gsnapId);
        }
        entry->second.push_back(std::move(tsnap));
        return true;
      })) {
    LOG_LONG_ERR("Failed to select records of drgroup db[%s]", groupId_.c_str());
    return false;
  }
  return readable;
}

std::optional<RepairVerdict> GsnapshotRepair::JudgeRecords(const std::string& gsnapId) const {
  const auto recorded = groupSnapDict_.find(gsnapId);
  if (recorded == groupSnapDict_.end()) return RepairVerdict{Reason::kNoMetadata, kGsnapUnknown};
  if (targetSnapDict_.count(gsnapId) == 0) return RepairVerdict{Reason::kNoParts, kGsnapBad};
  if (recorded->second == kGsnapBad) return RepairVerdict{Reason::kStaysBad, kGsnapBad};
  return std::nullopt;
}

RepairVerdict GsnapshotRepair::JudgeParts(const std::string& gsnapId,
                                          const std::vector<TargetSnapshot>& tsnaps) {
  if (gsnapId.empty()) return {Reason::kNoId, kGsnapUnknown};
  if (tsnaps.empty()) return {Reason::kNoParts, kGsnapBad};
  for (const TargetSnapshot& tsnap : tsnaps) {
    if (!SetTarget(tsnap.target)) return {Reason::kTargetUnknown, kGsnapUnknown, &tsnap};
    const TargetInfo& info = targetDict_.at(tsnap.target);
    if (!info.isExisted) return {Reason::kTargetGone, kGsnapBad, &tsnap};
    if (info.snapshotIds.count(tsnap.tsnap_id) == 0) {
      return {Reason::kSnapshotGone, kGsnapBad, &tsnap};
    }
  }
  return {};
}

RepairVerdict GsnapshotRepair::Judge(const std::string& gsnapId) {
  if (const auto verdict = JudgeRecords(gsnapId)) return *verdict;
  return JudgeParts(gsnapId, targetSnapDict_.find(gsnapId)->second);
}

void GsnapshotRepair::RepairTargetSnapshotTable() {
  for (const auto& [gsnapId, tsnaps] : targetSnapDict_) {
    const auto verdict = JudgeRecords(gsnapId);
    if (!verdict || verdict->reason != Reason::kNoMetadata) continue;
    LOG_LONG_WARN("Delete group snapshot [%s] since not in metadata of drgroup", gsnapId.c_str());
    GsnapshotDelete(gsnapId).Run();
  }
}

void GsnapshotRepair::RepairGroupSnapMetaTable() {
  for (const auto& [gsnapId, status] : groupSnapDict_) {
    const auto verdict = JudgeRecords(gsnapId);
    if (verdict && verdict->IsDeleted()) {
      LOG_LONG_WARN("group snapshot [%s] has no target snapshots, delete it", gsnapId.c_str());
      GsnapshotDelete(gsnapId).Run();
      continue;
    }
    if (verdict) continue;
    const GsnapStatus newStatus = GetGsnapStatus(gsnapId, targetSnapDict_.find(gsnapId)->second);
    if (newStatus == status) continue;
    LOG_LONG_WARN("Set status of gsnapId[%s] as [%d] -> [%d]", gsnapId.c_str(),
                  static_cast<int>(status), static_cast<int>(newStatus));
    GroupSnapStatusSet(groupId_, gsnapId, newStatus);
  }
}

GsnapStatus GsnapshotRepair::GetGsnapStatus(const std::string& gsnapId,
                                            const std::vector<TargetSnapshot>& tsnaps) {
  const RepairVerdict verdict = JudgeParts(gsnapId, tsnaps);
  switch (verdict.reason) {
    case Reason::kNoId:
      LOG_LONG_ERR("Empty gsnapId");
      break;
    case Reason::kNoParts:
      LOG_LONG_ERR("Empty target snapshots of gsnapId[%s]", gsnapId.c_str());
      break;
    case Reason::kTargetGone:
      LOG_LONG_WARN("Detect BAD gsnapshot [%s] since target[%s] of tsnap [%s] is not existed",
                    gsnapId.c_str(), Text(verdict.part->target).c_str(),
                    verdict.part->tsnap_id.c_str());
      break;
    case Reason::kSnapshotGone:
      LOG_LONG_WARN("Detect BAD gsnapshot [%s] since snapshot [%s] of target [%s] is not existed",
                    gsnapId.c_str(), verdict.part->tsnap_id.c_str(),
                    Text(verdict.part->target).c_str());
      break;
    default:  // SetTarget has told why a target cannot be asked
      break;
  }
  return verdict.status;
}

bool GsnapshotRepair::SetTarget(const VrelDR::Target& target) {
  if (targetDict_.count(target) != 0) return true;
  const VrelDR::TargetOperation op(target);
  TargetInfo info;
  info.isExisted = op.IsExisted();
  if (op.GetErrCode() != 0) {
    LOG_LONG_ERR("Failed to get target info [%s]", Text(target).c_str());
    return false;
  }
  if (info.isExisted && !op.ListSnapshotIds(info.snapshotIds)) {
    LOG_LONG_ERR("Failed to list snapshotIds of target[%s]", Text(target).c_str());
    return false;
  }
  targetDict_[target] = std::move(info);
  return true;
}

}  // namespace VrelDRGroup::Operation
