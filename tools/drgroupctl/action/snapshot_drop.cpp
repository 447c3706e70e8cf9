#include "action/snapshot_drop.h"

#include <vreldr/snapshot_history.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "action/snapshot_claims.h"
#include "command/confirm.h"
#include "groups/group_store.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

// A snapshot to be deleted, and what became of it.
struct Drop {
  Snapshot snapshot;
  bool is_deleted = false;
  std::string problem;
};

// Nobody may be taking a snapshot that is going to be recorded.
std::vector<std::unique_ptr<GroupLock>> LockGroupsOf(const std::string& targetId) {
  std::vector<std::unique_ptr<GroupLock>> locks;
  for (const std::string& group : GroupsOfTargets({targetId})) {
    locks.push_back(std::make_unique<GroupLock>(group));
  }
  return locks;
}

// Throws when a snapshot that was named may not be deleted, or is not there.
void CheckNamed(const std::string& targetId, const std::string& snapId,
                const std::vector<Snapshot>& snapshots, const SnapshotClaims& claims) {
  const std::string named = "snapshot " + Quote(snapId) + " of target " + Quote(targetId);
  const Snapshot* found = VrelDR::SnapshotHistory::Find(snapshots, snapId);
  if (found == nullptr) {
    throw Failure(ExitCode::kNotFound, "there is no " + named + ": correct the identifier");
  }
  const std::vector<std::string> reasons = claims.On(*found);
  if (reasons.empty()) return;
  throw Failure(ExitCode::kRefused, named + " " + Join(reasons, ", and ") +
                                        ": delete its group snapshot with \"drgroupctl snapshot "
                                        "delete\", or end what else claims it");
}

// Whether it is like what group snapshots leave behind.
bool IsLikeLeft(const Snapshot& snapshot) {
  return snapshot.meta.description.empty() && !snapshot.meta.is_locked;
}

// What is to go: the snapshots that were named or, without names, all that are like those of group
// snapshots, which carry no description, and that nothing claims.
std::vector<Drop> FindDrops(const VrelDR::Target& target, const std::vector<std::string>& names) {
  const VrelDR::TargetOperation operation(target);
  const std::vector<Snapshot> snapshots = operation.ListSnapshots();
  if (operation.GetErrCode() != 0) ThrowHostError(operation);
  std::vector<Snapshot> asked;
  for (const Snapshot& each : snapshots) {
    const bool isNamed = std::find(names.begin(), names.end(), each.snap_id) != names.end();
    if (names.empty() ? IsLikeLeft(each) : isNamed) asked.push_back(each);
  }
  const SnapshotClaims claims(target.GetId(), asked,
                              names.empty() ? Evidence::kFirst : Evidence::kAll);
  for (const Failure& each : claims.Doubts()) throw Failure(each);
  for (const std::string& each : names) CheckNamed(target.GetId(), each, snapshots, claims);
  std::vector<Drop> drops;
  for (const Snapshot& each : asked) {
    if (claims.On(each).empty()) drops.push_back({each, false, {}});
  }
  return drops;
}

std::size_t CountDeleted(const std::vector<Drop>& drops) {
  return static_cast<std::size_t>(
      std::count_if(drops.begin(), drops.end(), [](const Drop& each) { return each.is_deleted; }));
}

Json::Value Rows(const std::vector<Drop>& drops) {
  Json::Value rows(Json::arrayValue);
  for (const Drop& each : drops) {
    Json::Value row(Json::objectValue);
    row["tsnap_id"] = each.snapshot.snap_id;
    row["time"] = each.snapshot.create_time;
    row["is_deleted"] = each.is_deleted;
    row["problem"] = each.problem;
    rows.append(row);
  }
  return rows;
}

std::string Preview(const std::vector<Drop>& drops) {
  std::string lines;
  for (const Drop& each : drops) {
    lines += "Delete target snapshot " + Printable(each.snapshot.snap_id) + " of " +
             FormatTime(each.snapshot.create_time) + ".\n";
  }
  return lines;
}

// Deletes them all, as far as that is possible; throws when one stays. Of those that nobody named,
// what a plan holds is passed over.
void Delete(const VrelDR::Target& target, std::vector<Drop>& drops, bool areNamed) {
  const VrelDR::TargetOperation operation(target);
  int error = 0;
  std::vector<std::string> problems;
  for (Drop& each : drops) {
    each.is_deleted = operation.DeleteSnapshot(each.snapshot.snap_id);
    if (each.is_deleted) continue;
    each.problem = HostMessage(operation);
    if (!areNamed && operation.GetErrCode() == VrelDR::kErrLocked) continue;
    if (error == 0) error = operation.GetErrCode();
    problems.push_back(Printable(each.snapshot.snap_id) + " (" + each.problem + ")");
    // Each of the others would be waited for as long.
    if (operation.GetErrCode() == VrelDR::kErrBusy) break;
  }
  if (problems.empty()) return;
  Failure failure(FromHostError(error),
                  "target " + Quote(target.GetId()) +
                      ": these of its snapshots could not be deleted, the same command goes on: " +
                      Join(problems, ", "));
  failure.details["target_id"] = target.GetId();
  failure.details["snapshots"] = Rows(drops);
  throw failure;
}

}  // namespace

Report DropSnapshots(const Arguments& args, const std::string& id,
                     const std::vector<std::string>& names) {
  const VrelDR::Target target = RequireTarget(id).target;
  const auto locks = LockGroupsOf(id);
  std::vector<Drop> drops = FindDrops(target, names);
  const std::string what = Count(drops.size(), "snapshot") + " of target " + Quote(id);
  const bool isDry = args.Has("--dry-run");
  if (!isDry && !drops.empty()) {
    Confirm(args, "delete " + what + ", which no group snapshot has",
            args.Has("--json") ? std::string() : Preview(drops));
    Delete(target, drops, !names.empty());
  }

  Report report;
  report.AddText(isDry ? "Would delete " + what + "."
                       : "Deleted " + std::to_string(CountDeleted(drops)) + " of " + what +
                             " that no group snapshot has.");
  report.AddField({"target_id", "Target"}, id);
  report.AddField({"dry_run", "Dry run"}, isDry);
  report.AddField({"deleted_count", "Deleted"}, Json::UInt64(CountDeleted(drops)));
  report.AddTable({"snapshots", "Snapshots"},
                  {{"tsnap_id", "TARGET SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"is_deleted", "DELETED"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  Rows(drops));
  return report;
}

}  // namespace drgroupctl
