#include <vreldr/snapshot_history.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "action/plans.h"
#include "command/confirm.h"
#include "groups/group_store.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

// A snapshot to be deleted, and what became of it.
struct Candidate {
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
                const std::vector<Snapshot>& snapshots, const std::set<std::string>& recorded,
                const std::set<std::string>& needed) {
  const std::string named = "snapshot " + Quote(snapId) + " of target " + Quote(targetId);
  const Snapshot* found = VrelDR::SnapshotHistory::Find(snapshots, snapId);
  if (found == nullptr) {
    throw Failure(ExitCode::kNotFound, "there is no " + named + ": correct the identifier");
  }
  if (recorded.count(snapId) != 0) {
    throw Failure(ExitCode::kRefused, named +
                                          " belongs to a group snapshot: delete that with "
                                          "\"drgroupctl snapshot delete\"");
  }
  if (needed.count(snapId) != 0) {
    throw Failure(ExitCode::kRefused, named + " is needed by a plan of the target");
  }
  if (found->meta.is_locked) throw Failure(ExitCode::kRefused, named + " is locked");
}

// The identifiers of those that are like those of group snapshots and that no plan needs.
std::set<std::string> UnlockedLeftovers(const std::vector<Snapshot>& snapshots,
                                        const std::set<std::string>& needed) {
  std::set<std::string> ids;
  for (const Snapshot& each : VrelDR::SnapshotHistory::Leftovers(snapshots, {}, needed)) {
    if (!each.meta.is_locked) ids.insert(each.snap_id);
  }
  return ids;
}

// What is to go: the snapshots that were named or, without names, all that are like those of group
// snapshots, which carry no description, and that nobody needs.
std::vector<Candidate> FindCandidates(const VrelDR::Target& target,
                                      const std::vector<std::string>& names) {
  std::set<std::string> needed;
  for (const VrelDR::DRPlan& plan : PlansOf(target.GetId())) AddNeeded(plan, needed);
  const VrelDR::TargetOperation operation(target);
  const std::vector<Snapshot> snapshots = operation.ListSnapshots();
  if (operation.GetErrCode() != 0) ThrowHostError(operation);
  std::set<std::string> asked(names.begin(), names.end());
  if (names.empty()) asked = UnlockedLeftovers(snapshots, needed);
  const std::set<std::string> recorded =
      AllRecordedAmong(std::move(asked), GroupsOfTargets({target.GetId()}));
  for (const std::string& each : names) {
    CheckNamed(target.GetId(), each, snapshots, recorded, needed);
  }
  std::vector<Candidate> candidates;
  if (names.empty()) {
    needed.insert(recorded.begin(), recorded.end());
    for (const Snapshot& each : VrelDR::SnapshotHistory::Leftovers(snapshots, {}, needed)) {
      if (!each.meta.is_locked) candidates.push_back({each, false, {}});
    }
    return candidates;
  }
  for (const Snapshot& each : snapshots) {
    const bool isNamed = std::find(names.begin(), names.end(), each.snap_id) != names.end();
    if (isNamed) candidates.push_back({each, false, {}});
  }
  return candidates;
}

std::size_t CountDeleted(const std::vector<Candidate>& candidates) {
  return static_cast<std::size_t>(std::count_if(
      candidates.begin(), candidates.end(), [](const Candidate& each) { return each.is_deleted; }));
}

Json::Value Rows(const std::vector<Candidate>& candidates) {
  Json::Value rows(Json::arrayValue);
  for (const Candidate& each : candidates) {
    Json::Value row(Json::objectValue);
    row["tsnap_id"] = each.snapshot.snap_id;
    row["time"] = each.snapshot.create_time;
    row["is_deleted"] = each.is_deleted;
    row["problem"] = each.problem;
    rows.append(row);
  }
  return rows;
}

std::string Preview(const std::vector<Candidate>& candidates) {
  std::string lines;
  for (const Candidate& each : candidates) {
    lines += "Delete target snapshot " + Printable(each.snapshot.snap_id) + " of " +
             FormatTime(each.snapshot.create_time) + ".\n";
  }
  return lines;
}

// Deletes them all, as far as that is possible; throws when one stays. Of those that nobody named,
// what a plan holds is passed over.
void Delete(const VrelDR::Target& target, std::vector<Candidate>& candidates, bool areNamed) {
  const VrelDR::TargetOperation operation(target);
  int error = 0;
  std::vector<std::string> problems;
  for (Candidate& each : candidates) {
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
  failure.details["snapshots"] = Rows(candidates);
  throw failure;
}

Report RunTargetPrune(const Arguments& args, Warnings& /*warnings*/) {
  const std::string id = args.Text("ID");
  const VrelDR::Target target = RequireTarget(id).target;
  const auto locks = LockGroupsOf(id);
  std::vector<Candidate> candidates = FindCandidates(target, args.List("--snapshot"));
  const std::string what = Count(candidates.size(), "snapshot") + " of target " + Quote(id);
  const bool isDry = args.Has("--dry-run");
  if (!isDry && !candidates.empty()) {
    Confirm(args, "delete " + what + ", which no group snapshot has",
            args.Has("--json") ? std::string() : Preview(candidates));
    Delete(target, candidates, args.Has("--snapshot"));
  }

  Report report;
  report.AddText(isDry ? "Would delete " + what + "."
                       : "Deleted " + std::to_string(CountDeleted(candidates)) + " of " + what +
                             " that no group snapshot has.");
  report.AddField({"target_id", "Target"}, id);
  report.AddField({"dry_run", "Dry run"}, isDry);
  report.AddField({"deleted_count", "Deleted"}, Json::UInt64(CountDeleted(candidates)));
  report.AddTable({"snapshots", "Snapshots"},
                  {{"tsnap_id", "TARGET SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"is_deleted", "DELETED"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  Rows(candidates));
  return report;
}

}  // namespace

Verb TargetPrune() {
  return {"target prune",
          "delete what no group snapshot has of a target",
          {"For what a creation, a deletion or a repair of group snapshots had to leave on the "
           "target: its message names them. With --snapshot deletes those, without it all that "
           "carry no description, as those of group snapshots, and that no group's catalogue "
           "records and no plan needs. Refused while the catalogue of any group cannot be read. "
           "Nobody else may be taking snapshots of the target meanwhile."},
          "Snapshots of the target are lost.",
          {Argument("ID", Value::kTarget, "the target")},
          {{"--snapshot", Value::kText, "SNAPSHOT", "only this target snapshot", false, true},
           Flag("--dry-run", "only show what would be deleted"),
           Yes()},
          RunTargetPrune};
}

}  // namespace drgroupctl
