#include <vreldrgroup/snapshot/gsnap_restore.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "action/group_action.h"
#include "action/plans.h"
#include "command/confirm.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_check.h"
#include "groups/gsnap_completeness.h"
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

Report RunSnapshotRestore(const Arguments& args, Warnings& warnings) {
  const std::string gsnapId = args.Text("GSNAP");
  const GroupLock lock(VrelDRGroup::Utils::ParseGroupId(gsnapId));
  VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  LeaveOutFormerTargets(warnings, info);
  if (info.status == VrelDRGroup::kGsnapBad && !args.Has("--force")) {
    throw Failure(ExitCode::kRefused,
                  "group snapshot " + Quote(gsnapId) +
                      " is bad: one of its target snapshots was gone when the catalogue was last "
                      "repaired; add --force to restore it all the same");
  }
  CheckUsable(info);
  RequireComplete(warnings, info, "restored", args.Has("--force"));
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    RequirePlace(each.target.GetId(), VrelDR::PlaceUse::kReplacement);
  }
  RequireWorking(info);
  std::set<std::string> ids;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    ids.insert(each.target.GetId());
  }
  const NobodySends nobodySends(ids);
  std::vector<PlannedUse> uses;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    uses.push_back({each.target.GetId(), VrelDR::PlaceUse::kReplacement});
  }
  const InUse inUse(uses, args);
  inUse.Require("restoring group snapshot " + Quote(gsnapId));
  inUse.Warn(warnings);
  Confirm(args, "replace all that " + Count(info.target_snapshots.size(), "target") +
                    " now hold by group snapshot " + Quote(gsnapId));
  const Outcome outcome = RestoreTargets(info);

  Report report;
  report.AddText("Restored group snapshot " + Quote(gsnapId) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, gsnapId);
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"tsnap_id", "TARGET SNAPSHOT"},
                   {"result", "RESULT"},
                   {"problem", "PROBLEM", Shown::kIfAny}},
                  outcome.Rows());
  return report;
}

}  // namespace

Verb SnapshotRestore() {
  return {
      "snapshot restore",
      "roll every target of a group back to a group snapshot",
      {"Each target holds exactly the snapshot's bytes afterwards; its snapshots stay. "
       "Whoever has one open goes on with the bytes that it had.",
       kInUse,
       "Targets are restored one after the other, each whole or not at all. Nothing is begun "
       "unless every target snapshot is there. When a target fails, the message tells which "
       "targets were restored, which one failed and which were not started, and the same command "
       "can be run again. Refused while a sync sends one of the targets, for whatever group. "
       "Without "
       "--force it is refused when the status of the group snapshot is bad, or when it is "
       "incomplete: with it the targets that it has no part of stay as they are."},
      "What the targets hold now is lost.",
      {Gsnap()},
      {Flag("--force", "restore it although it is bad or incomplete"), GoOnInUse(), Yes()},
      RunSnapshotRestore,
      "restore"};
}

}  // namespace drgroupctl
