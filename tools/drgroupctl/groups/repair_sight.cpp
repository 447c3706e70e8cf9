#include "groups/repair_sight.h"

#include <vreldr/target_operation.h>
#include <vreldrgroup/db.h>

#include <utility>

#include "groups/catalogue.h"

namespace drgroupctl {

namespace {

using VrelDRCore::SelectCommand;
using VrelDRCore::SqliteValueList;

bool ReadStatuses(const VrelDRGroup::DRGroupDB& db, RepairSight& sight) {
  SelectCommand command;
  command.SetTable(VrelDRGroup::GsnapMetadataSqliteTable());
  command.AddField("gsnap_id");
  command.AddField("status");
  return db.SelectEach(command, [&](const SqliteValueList& row) {
    std::string gsnapId;
    if (!row.GetValue("gsnap_id", gsnapId)) return true;
    int status = VrelDRGroup::kGsnapUnknown;
    row.GetValue("status", status);
    sight.statuses[gsnapId] = static_cast<VrelDRGroup::GsnapStatus>(status);
    return true;
  });
}

bool ReadParts(const VrelDRGroup::DRGroupDB& db, RepairSight& sight) {
  SelectCommand command;
  command.SetTable(VrelDRGroup::TargetSnapListSqliteTable());
  bool readable = true;
  return db.SelectEach(command, [&](const SqliteValueList& row) {
    std::string gsnapId;
    VrelDRGroup::TargetSnapshot part(VrelDR::Target(), "");
    readable = row.GetValue("gsnap_id", gsnapId) && part.FromSqliteValues(row);
    if (readable) sight.parts[gsnapId].push_back(std::move(part));
    return readable;
  }) && readable;
}

std::optional<VrelDRGroup::Operation::TargetInfo> Ask(const VrelDR::Target& target) {
  const VrelDR::TargetOperation operation(target);
  VrelDRGroup::Operation::TargetInfo info;
  info.isExisted = operation.IsExisted();
  if (operation.GetErrCode() != 0) return std::nullopt;
  if (info.isExisted && !operation.ListSnapshotIds(info.snapshotIds)) return std::nullopt;
  return info;
}

}  // namespace

RepairSight LookForRepair(const std::string& groupId) {
  RepairSight sight;
  const VrelDRGroup::DRGroupDB db = VrelDRGroup::DRGroupDB::GetRef(groupId);
  if (!ReadStatuses(db, sight) || !ReadParts(db, sight)) {
    throw CatalogueFailure(groupId, "cannot read its records");
  }
  for (const auto& [gsnapId, parts] : sight.parts) {
    const auto status = sight.statuses.find(gsnapId);
    // The others' targets decide nothing.
    if (status == sight.statuses.end() || status->second == VrelDRGroup::kGsnapBad) continue;
    for (const VrelDRGroup::TargetSnapshot& each : parts) {
      if (sight.targets.count(each.target) == 0) sight.targets[each.target] = Ask(each.target);
    }
  }
  return sight;
}

}  // namespace drgroupctl
