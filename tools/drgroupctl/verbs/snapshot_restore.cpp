#include <vreldrgroup/snapshot/gsnap_restore.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <optional>

#include "action/group_action.h"
#include "action/plans.h"
#include "action/restore_undo.h"
#include "command/confirm.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_check.h"
#include "groups/gsnap_completeness.h"
#include "groups/kill_point.h"
#include "host/host.h"
#include "host/in_use.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// What became of each target, in the order in which they are restored.
class Outcome {
 public:
  explicit Outcome(const VrelDRGroup::GsnapshotInfo& info) {
    for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
      Json::Value row(Json::objectValue);
      row["target_id"] = each.target.GetId();
      row["tsnap_id"] = each.tsnap_id;
      row["result"] = "not started";
      row["problem"] = "";
      rows_.append(row);
    }
  }

  void SetDone(Json::ArrayIndex index) { rows_[index]["result"] = "done"; }
  void SetFailed(Json::ArrayIndex index, const std::string& problem) {
    rows_[index]["result"] = "failed";
    rows_[index]["problem"] = problem;
  }

  const Json::Value& Rows() const { return rows_; }

  // All of it in one line.
  std::string Text() const {
    std::vector<std::string> parts;
    for (const Json::Value& row : rows_) {
      const std::string problem = row["problem"].asString();
      parts.push_back("target " + Quote(row["target_id"].asString()) + ": " +
                      row["result"].asString() + (problem.empty() ? "" : ", " + problem));
    }
    return Join(parts, "; ");
  }

 private:
  Json::Value rows_ = Json::Value(Json::arrayValue);
};

// Restores one target after the other; throws at the first that fails.
Outcome RestoreTargets(const VrelDRGroup::GsnapshotInfo& info) {
  Outcome outcome(info);
  const VrelDRGroup::Operation::GsnapshotRestore operation(info.gsnap_id);
  for (Json::ArrayIndex i = 0; i < info.target_snapshots.size(); ++i) {
    const VrelDRGroup::TargetSnapshot& each = info.target_snapshots[i];
    if (operation.RestoreTargetSnapshots({each})) {
      outcome.SetDone(i);
      continue;
    }
    outcome.SetFailed(i, HostMessage(operation));
    Failure failure(
        FromHostError(operation.GetErrCode()),
        "group snapshot " + Quote(info.gsnap_id) +
            " was not restored whole, and restoring can be run again: " + outcome.Text());
    failure.details["target_id"] = each.target.GetId();
    failure.details["targets"] = outcome.Rows();
    throw failure;
  }
  return outcome;
}

}  // namespace

namespace {

// Throws unless each target works: the host restores no copy that does not.
void RequireWorking(const VrelDRGroup::GsnapshotInfo& info) {
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const std::string& id = each.target.GetId();
    for (const VrelDR::DRPlan& plan : PlansOf(id)) {
      if (plan.GetWorkingTargetId() == id) continue;
      throw Failure(ExitCode::kRefused,
                    "group snapshot " + Quote(info.gsnap_id) + ": target " + Quote(id) +
                        " is the copy of plan " + Quote(plan.GetPlanId()) +
                        " that does not work, so nothing was begun: restore a group snapshot of "
                        "the copies that work, or turn the plans so that all its targets do");
    }
  }
}

// Throws when the group snapshot or one of its targets is not what can be restored.
void RequireRestorable(const VrelDRGroup::GsnapshotInfo& info, const Arguments& args,
                       Warnings& warnings) {
  if (info.status == VrelDRGroup::kGsnapBad && !args.Has("--force")) {
    throw Failure(ExitCode::kRefused,
                  "group snapshot " + Quote(info.gsnap_id) +
                      " is bad: one of its target snapshots was gone when the catalogue was last "
                      "repaired; add --force to restore it all the same");
  }
  CheckUsable(info);
  // What undoes a restore has what that was going to replace.
  if (!args.Has("--undo")) RequireComplete(warnings, info, "restored", args.Has("--force"));
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    RequirePlace(each.target.GetId(), VrelDR::PlaceUse::kReplacement);
  }
  RequireWorking(info);
}

std::vector<PlannedUse> UsesOf(const VrelDRGroup::GsnapshotInfo& info) {
  std::vector<PlannedUse> uses;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    uses.push_back({each.target.GetId(), VrelDR::PlaceUse::kReplacement});
  }
  return uses;
}

// What keeps the undo of a restore: the group's definition, on disk at every step. Without one, as
// --force allows, nothing is kept.
class UndoKeeper {
 public:
  UndoKeeper(const VrelDRGroup::GsnapshotInfo& info, const Arguments& args)
      : info_(info),
        is_taken_(!args.Has("--no-undo")),
        is_undo_(args.Has("--undo")),
        is_in_use_(args.Has("--in-use")) {
    try {
      group_ = LoadGroup(VrelDRGroup::Utils::ParseGroupId(info.gsnap_id));
    } catch (Failure& failure) {
      if (!is_taken_) return;
      failure.message += "; what undoes the restore cannot be kept: go without by --no-undo";
      throw;
    }
    const LastRestore& last = group_->last_restore;
    goes_on_ = last.is_unfinished && last.gsnap_id == info.gsnap_id;
  }

  // What becomes of what the targets hold now.
  std::string Text() const {
    if (goes_on_) {
      return " as an interrupted restore has begun to: what was written since then is lost, what "
             "was before is " +
             (BeforeId().empty() ? "lost, too" : "group snapshot " + Quote(BeforeId()));
    }
    return is_taken_ ? ", which a group snapshot keeps" : ", which is lost";
  }

  // Keeps what the targets hold, and says so, unless that was done before an interruption: what is
  // half restored must not take the place of it.
  void Begin(Warnings& warnings) {
    if (goes_on_) {
      warnings.Print("a restore of group snapshot " + Quote(info_.gsnap_id) +
                     " that was interrupted is gone on with, and no group snapshot taken first");
    }
    if (goes_on_ || !group_) return;
    LastRestore begun{info_.gsnap_id, "", true, is_undo_};
    if (is_taken_) begun.before_id = TakeBefore(*group_, info_, is_in_use_, warnings);
    KillPoint(kUndoMade);
    group_->last_restore = begun;
    WriteDefinition(*group_);
    KillPoint(kUndoRecorded);
  }

  void Finish() {
    if (!group_) return;
    KillPoint(kUndoRestored);
    group_->last_restore.is_unfinished = false;
    WriteDefinition(*group_);
    KillPoint(kUndoFinished);
  }

  // The group snapshot of what the targets held before; empty when there is none.
  std::string BeforeId() const { return group_ ? group_->last_restore.before_id : ""; }
  // How to get it back; empty as well.
  std::string Advice() const {
    if (BeforeId().empty()) return {};
    return "\"drgroupctl snapshot restore --undo " + group_->id +
           "\" brings back what the targets held before, group snapshot " + Quote(BeforeId());
  }

 private:
  const VrelDRGroup::GsnapshotInfo& info_;
  std::optional<Group> group_;
  bool is_taken_;
  bool is_undo_;
  bool is_in_use_;
  bool goes_on_ = false;
};

Report RestoreReport(const VrelDRGroup::GsnapshotInfo& info, const UndoKeeper& undo,
                     const Outcome& outcome) {
  Report report;
  report.AddText("Restored group snapshot " + Quote(info.gsnap_id) + ".");
  if (!undo.BeforeId().empty()) report.AddText(undo.Advice() + ".");
  report.AddField({"gsnap_id", "Snapshot"}, info.gsnap_id);
  report.AddField({"before_id", "Before", Shown::kIfAny}, undo.BeforeId());
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"tsnap_id", "TARGET SNAPSHOT"},
                   {"result", "RESULT"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  outcome.Rows());
  return report;
}

Outcome RestoreOrTell(const VrelDRGroup::GsnapshotInfo& info, const UndoKeeper& undo) {
  try {
    return RestoreTargets(info);
  } catch (Failure& failure) {
    if (!undo.BeforeId().empty()) failure.message += "; " + undo.Advice();
    failure.details["before_id"] = undo.BeforeId();
    throw;
  }
}

// The group of the command line.
std::string GroupOf(const Arguments& args) {
  if (args.Has("--undo") == args.Has("GSNAP")) {
    throw Failure(ExitCode::kUsage,
                  "give the group snapshot to be restored, or --undo with the group whose last "
                  "restore is to be undone");
  }
  return args.Has("--undo") ? args.Text("--undo")
                            : VrelDRGroup::Utils::ParseGroupId(args.Text("GSNAP"));
}

Report RunSnapshotRestore(const Arguments& args, Warnings& warnings) {
  const std::string groupId = GroupOf(args);
  const GroupLock lock(groupId);
  const std::string gsnapId =
      args.Has("--undo") ? RequireUndo(LoadGroup(groupId)) : args.Text("GSNAP");
  VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  LeaveOutFormerTargets(warnings, info);
  RequireRestorable(info, args, warnings);
  const NobodySends nobodySends(PartsOf(info));
  UndoKeeper undo(info, args);
  const InUse inUse(UsesOf(info), args);
  inUse.Require("restoring group snapshot " + Quote(gsnapId));
  inUse.Warn(warnings);
  Confirm(args, "replace all that " + Count(info.target_snapshots.size(), "target") +
                    " now hold by group snapshot " + Quote(gsnapId) + undo.Text());
  undo.Begin(warnings);
  const Outcome outcome = RestoreOrTell(info, undo);
  undo.Finish();
  return RestoreReport(info, undo, outcome);
}

}  // namespace

Verb SnapshotRestore() {
  return {
      "snapshot restore",
      "roll every target of a group back to a group snapshot",
      {"Each target holds exactly the snapshot's bytes afterwards; its snapshots stay. "
       "Whoever has one open goes on with the bytes that it had.",
       "A group snapshot of what the targets hold is taken first, in one cut, described as "
       "\"before "
       "restore of GSNAP\", and recorded as what undoes the restore: --undo GROUP restores it, "
       "which can be undone as well. \"snapshot prune\" lets it stay until the next restore. A "
       "restore that was interrupted is gone on with by the same command, and takes none again: "
       "what it has half restored is not what undoes it. It needs the room of any group snapshot; "
       "--no-undo goes without.",
       kInUse,
       "Targets are restored one after the other, each whole or not at all. Nothing is begun "
       "unless every target snapshot is there. When a target fails, the message tells which "
       "targets were restored, which one failed and which were not started, and the same command "
       "can be run again. Refused while a sync sends one of the targets, for whatever group. "
       "Without "
       "--force it is refused when the status of the group snapshot is bad, or when it is "
       "incomplete: with it the targets that it has no part of stay as they are."},
      "What the targets hold now is lost with --no-undo; else it is a group snapshot afterwards.",
      {{"GSNAP", Value::kGsnap, "GSNAP", "the group snapshot, such as g1-gsnap-1700000000"}},
      {{"--undo", Value::kGroup, "GROUP", "bring back what was before this group's last restore"},
       Flag("--no-undo", "take no group snapshot first, as when there is no room"),
       Flag("--force", "restore it although it is bad or incomplete"),
       GoOnInUse(),
       Yes()},
      RunSnapshotRestore,
      "restore"};
}

}  // namespace drgroupctl
