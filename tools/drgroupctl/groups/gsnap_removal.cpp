#include "groups/gsnap_removal.h"

#include <vreldr/target_operation.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_delete.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "groups/catalogue.h"
#include "groups/catalogue_rows.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace Op = VrelDRGroup::Operation;

namespace {

using VrelDRGroup::TargetSnapshot;

// A target snapshot that should be gone.
struct Stay {
  TargetSnapshot snapshot;
  Presence presence;
  int error;
  std::string problem;
};

// Deletes the snapshot if it is there, through the host alone. Nothing when it is gone afterwards.
std::optional<Stay> DeleteOnce(const TargetSnapshot& snapshot) {
  const SnapshotState state = AskSnapshot(snapshot.target, snapshot.tsnap_id);
  if (state.presence == Presence::kMissing) return std::nullopt;
  if (state.presence == Presence::kUnknown) {
    return Stay{snapshot, state.presence, state.error, state.problem};
  }
  const VrelDR::TargetOperation operation(snapshot.target);
  if (operation.DeleteSnapshot(snapshot.tsnap_id)) return std::nullopt;
  return Stay{snapshot, state.presence, operation.GetErrCode(), HostMessage(operation)};
}

// The library takes a target snapshot that it could not ask about for one that is gone. What is
// still there of `snapshots`, after a second try where the first fails.
std::vector<Stay> DeleteWhatStayed(const std::vector<TargetSnapshot>& snapshots) {
  std::vector<Stay> stays;
  for (const TargetSnapshot& each : snapshots) {
    if (!DeleteOnce(each)) continue;
    if (const std::optional<Stay> stay = DeleteOnce(each)) stays.push_back(*stay);
  }
  return stays;
}

// A deletion that was interrupted has left bytes of a snapshot that does not exist any more: the
// host removes them with the next change of the target. Throws when that fails.
void FinishInterrupted(const VrelDRGroup::GsnapshotInfo& info, const Presences& presences) {
  for (std::size_t i = 0; i < info.target_snapshots.size(); ++i) {
    if (presences[i] != Presence::kMissing) continue;
    const TargetSnapshot& each = info.target_snapshots[i];
    const VrelDR::TargetOperation operation(each.target);
    if (operation.DeleteSnapshot(each.tsnap_id)) continue;
    const int error = operation.GetErrCode();
    if (error == VrelDR::kErrSnapshotMissing || error == VrelDR::kErrTargetMissing) continue;
    throw Failure(FromHostError(error),
                  "group snapshot " + Quote(info.gsnap_id) +
                      " was not deleted: what an interrupted deletion has left of its snapshot of "
                      "target " +
                      Quote(each.target.GetId()) + " cannot be removed: " + HostMessage(operation));
  }
}

// Those parts of the group snapshot that the group's catalogue records no more; none when it cannot
// be read.
std::vector<TargetSnapshot> Unrecorded(const std::string& groupId,
                                       const VrelDRGroup::GsnapshotInfo& info) {
  Identifiers ids;
  for (const TargetSnapshot& each : info.target_snapshots) ids.insert(each.tsnap_id);
  std::set<std::string> recorded;
  std::vector<TargetSnapshot> parts;
  try {
    CatalogueRows(groupId).VisitPartsAmong(
        ids, [&recorded](const auto& part) { recorded.insert(part.tsnap_id); });
  } catch (const Failure&) {  // why the deletion failed is told
    return parts;
  }
  for (const TargetSnapshot& each : info.target_snapshots) {
    if (recorded.count(each.tsnap_id) == 0) parts.push_back(each);
  }
  return parts;
}

// Which target snapshots stay, why, and how to get rid of them.
std::string StayText(const std::vector<Stay>& stays) {
  std::vector<std::string> texts;
  texts.reserve(stays.size());
  for (const Stay& each : stays) {
    texts.push_back(Printable(each.snapshot.tsnap_id) + " of target " +
                    Quote(each.snapshot.target.GetId()) + " (" + each.problem + ")");
  }
  return "these target snapshots stay, which nothing records any more: " + Join(texts, ", ") +
         "; see to what is in the way, and delete them with \"drgroupctl target prune\"";
}

Json::Value StayRows(const std::vector<Stay>& stays) {
  Json::Value rows(Json::arrayValue);
  for (const Stay& each : stays) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.snapshot.target.GetId();
    row["tsnap_id"] = each.snapshot.tsnap_id;
    row["problem"] = each.problem;
    rows.append(row);
  }
  return rows;
}

Failure NotDeleted(const std::string& groupId, const VrelDRGroup::GsnapshotInfo& info,
                   const Op::GsnapshotDelete& operation) {
  // A code of its own, without a message, is about a row that names no target snapshot.
  const bool isHosts = !operation.GetErrMsg().isNull();
  Failure failure(
      isHosts ? FromHostError(operation.GetErrCode()) : ExitCode::kCatalogue,
      "group snapshot " + Quote(info.gsnap_id) + " was not deleted, at least not whole: " +
          (isHosts ? HostMessage(operation) : "one of its records names no target snapshot") +
          "; it stays listed, and deleting can be tried again");
  const std::vector<Stay> stays = DeleteWhatStayed(Unrecorded(groupId, info));
  if (!stays.empty()) failure.message += "; " + StayText(stays);
  failure.details["left_snapshots"] = StillThere(info.target_snapshots);
  return failure;
}

// Whether the table has a row of the group snapshot, or could not be asked.
bool MayHaveRow(const std::string& groupId, const VrelDRCore::SqliteTableHandler& table,
                const std::string& gsnapId) {
  VrelDRCore::SelectCommand command;
  command.SetTable(table);
  command.SetCondition(VrelDRCore::SqliteEqual("gsnap_id", gsnapId));
  command.SetLimit(1);
  VrelDRCore::SqliteValueList row;
  const VrelDRGroup::DRGroupDB db = VrelDRGroup::DRGroupDB::GetRef(groupId);
  return db.SelectRecord(command, row) || db.GetErrCode() != 0;
}

// The library counts what it could not remove from the catalogue as done. Looks at the rows of this
// one alone: a catalogue may have thousands of others.
void CheckForgotten(const std::string& groupId, const std::string& gsnapId) {
  if (MayHaveRow(groupId, VrelDRGroup::GsnapMetadataSqliteTable(), gsnapId) ||
      MayHaveRow(groupId, VrelDRGroup::TargetSnapListSqliteTable(), gsnapId) ||
      MayHaveRow(groupId, VrelDRGroup::TargetReplicaListSqliteTable(), gsnapId)) {
    throw CatalogueFailure(groupId,
                           "group snapshot " + Quote(gsnapId) +
                               ": its target snapshots are deleted, but not all of its records");
  }
}

// In one transaction: what is not committed is rolled back when it returns.
bool DeleteRecords(const std::string& groupId, const std::string& gsnapId) {
  const VrelDRGroup::DRGroupDB db = VrelDRGroup::DRGroupDB::GetRef(groupId);
  const VrelDRCore::SqliteCondition own = VrelDRCore::SqliteEqual("gsnap_id", gsnapId);
  return db.Exec("BEGIN IMMEDIATE") &&
         db.DeleteRecord(VrelDRGroup::GsnapMetadataSqliteTable(), own) &&
         db.DeleteRecord(VrelDRGroup::TargetSnapListSqliteTable(), own) &&
         db.DeleteRecord(VrelDRGroup::TargetReplicaListSqliteTable(), own) && db.Exec("COMMIT");
}

}  // namespace

Presences AskParts(const VrelDRGroup::GsnapshotInfo& info, bool mustReach) {
  Presences presences;
  presences.reserve(info.target_snapshots.size());
  for (const TargetSnapshot& each : info.target_snapshots) {
    const SnapshotState state = AskSnapshot(each.target, each.tsnap_id);
    if (mustReach && state.presence == Presence::kUnknown) {
      throw Failure(ExitCode::kRefused,
                    "group snapshot " + Quote(info.gsnap_id) + ": its snapshot of target " +
                        Quote(each.target.GetId()) + " is out of reach (" + state.problem +
                        "): make it reachable, or forget it where it is with \"drgroupctl snapshot "
                        "delete --force\"");
    }
    presences.push_back(state.presence);
  }
  return presences;
}

Json::Value LeftRows(const std::vector<TargetSnapshot>& snapshots) {
  Json::Value rows(Json::arrayValue);
  for (const TargetSnapshot& each : snapshots) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["tsnap_id"] = each.tsnap_id;
    rows.append(row);
  }
  return rows;
}

Json::Value StillThere(const std::vector<TargetSnapshot>& snapshots) {
  std::vector<TargetSnapshot> left;
  std::copy_if(snapshots.begin(), snapshots.end(), std::back_inserter(left),
               [](const TargetSnapshot& each) {
                 return AskSnapshot(each.target, each.tsnap_id).presence != Presence::kMissing;
               });
  return LeftRows(left);
}

std::vector<TargetSnapshot> RemoveGsnap(const std::string& groupId,
                                        const VrelDRGroup::GsnapshotInfo& info,
                                        const Presences& presences, OutOfReach outOfReach) {
  if (outOfReach == OutOfReach::kFail) FinishInterrupted(info, presences);
  Op::GsnapshotDelete operation(info.gsnap_id);
  if (!operation.Run()) throw NotDeleted(groupId, info, operation);
  std::vector<TargetSnapshot> left;
  std::vector<Stay> stays;
  for (Stay& each : DeleteWhatStayed(info.target_snapshots)) {
    if (outOfReach == OutOfReach::kForget && each.presence == Presence::kUnknown) {
      left.push_back(each.snapshot);
    } else {
      stays.push_back(std::move(each));
    }
  }
  if (!stays.empty()) {
    const ExitCode code = FromHostError(stays.front().error);
    // What is missing there is the storage that it was on.
    Failure failure(code == ExitCode::kNotFound ? ExitCode::kStorage : code,
                    "group snapshot " + Quote(info.gsnap_id) +
                        " was deleted from the catalogue, but " + StayText(stays));
    failure.details["left_snapshots"] = StayRows(stays);
    throw failure;
  }
  CheckForgotten(groupId, info.gsnap_id);
  return left;
}

void ForgetGsnap(const std::string& groupId, const std::string& gsnapId) {
  if (!DeleteRecords(groupId, gsnapId)) {
    throw CatalogueFailure(groupId, "group snapshot " + Quote(gsnapId) + " was not deleted");
  }
}

}  // namespace drgroupctl
