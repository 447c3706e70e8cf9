#include <vreldrgroup/snapshot/gsnap_repair.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <set>

#include "command/confirm.h"
#include "groups/catalogue.h"
#include "groups/group_store.h"
#include "groups/gsnap_completeness.h"
#include "groups/gsnap_removal.h"
#include "groups/repair_plan.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// Deletion works on the catalogue of the group that a group snapshot's name tells: one of another
// name here would take that group's snapshot of this name with it.
void RefuseForeign(const std::string& groupId, const RepairPlan& plan) {
  for (const RepairPlan::Deletion& each : plan.deletions) {
    if (VrelDRGroup::Utils::ParseGroupId(each.gsnap_id) == groupId) continue;
    throw Failure(ExitCode::kCatalogue,
                  "group " + Quote(groupId) + ": its catalogue has records of " +
                      Quote(each.gsnap_id) +
                      ", which is no group snapshot of it, so nothing was repaired: restore the "
                      "catalogue from a backup");
  }
}

// The target snapshots of group snapshots that are recorded only by them: the records go, they
// stay.
Json::Value Orphans(const RepairSight& sight) {
  std::vector<VrelDRGroup::TargetSnapshot> orphans;
  for (const RepairPlan::Deletion& each : sight.plan.deletions) {
    const auto parts = sight.parts.find(each.gsnap_id);
    if (parts == sight.parts.end()) continue;
    orphans.insert(orphans.end(), parts->second.begin(), parts->second.end());
  }
  return StillThere(orphans);
}

// The group snapshots that stay and have no part of some targets of the group, with those targets.
// The library's repair looks at the parts that are recorded.
Json::Value IncompleteRows(Warnings& warnings, const std::string& groupId,
                           const RepairSight& sight) {
  Json::Value rows(Json::arrayValue);
  const auto defined = DefinedGroup(warnings, groupId);
  if (!defined) return rows;
  std::set<std::string> going;
  for (const RepairPlan::Deletion& each : sight.plan.deletions) going.insert(each.gsnap_id);
  for (const auto& [gsnapId, status] : sight.statuses) {
    if (going.count(gsnapId) != 0) continue;
    std::set<std::string> parts;
    for (const auto& each : sight.parts.at(gsnapId)) parts.insert(each.target.GetId());
    const std::vector<std::string> missing = MissingTargets(*defined, TimeOf(gsnapId), parts);
    if (missing.empty()) continue;
    Json::Value row(Json::objectValue);
    row["gsnap_id"] = gsnapId;
    for (const std::string& each : missing) row["missing_targets"].append(each);
    rows.append(row);
  }
  return rows;
}

std::string Preview(const RepairPlan& plan) {
  std::string lines;
  for (const RepairPlan::Deletion& each : plan.deletions) {
    lines += "Delete group snapshot " + Quote(each.gsnap_id) + ": " + each.reason + ".\n";
  }
  for (const RepairPlan::StatusChange& each : plan.changes) {
    lines += "Set group snapshot " + Quote(each.gsnap_id) + " from " + ToString(each.from) +
             " to " + ToString(each.to) + ": " + each.reason + ".\n";
  }
  return lines;
}

std::string Loss(const RepairPlan& plan) {
  std::vector<std::string> parts;
  if (!plan.deletions.empty()) {
    parts.push_back("delete " + Count(plan.deletions.size(), "group snapshot"));
  }
  if (!plan.changes.empty()) {
    parts.push_back("set the status of " + Count(plan.changes.size(), "group snapshot"));
  }
  return Join(parts, " and ") + " (--dry-run shows which)";
}

// What of the plan has come about. What happened otherwise, nobody planned.
RepairPlan Done(const RepairPlan& plan, const RepairSight& after) {
  RepairPlan done;
  for (const RepairPlan::Deletion& each : plan.deletions) {
    if (after.statuses.count(each.gsnap_id) == 0 && after.parts.count(each.gsnap_id) == 0) {
      done.deletions.push_back(each);
    }
  }
  for (const RepairPlan::StatusChange& each : plan.changes) {
    const auto now = after.statuses.find(each.gsnap_id);
    if (now != after.statuses.end() && now->second == each.to) done.changes.push_back(each);
  }
  return done;
}

Json::Value DeletionRows(const RepairPlan& plan) {
  Json::Value rows(Json::arrayValue);
  for (const RepairPlan::Deletion& each : plan.deletions) {
    Json::Value row(Json::objectValue);
    row["gsnap_id"] = each.gsnap_id;
    row["reason"] = each.reason;
    rows.append(row);
  }
  return rows;
}

Json::Value ChangeRows(const RepairPlan& plan) {
  Json::Value rows(Json::arrayValue);
  for (const RepairPlan::StatusChange& each : plan.changes) {
    Json::Value row(Json::objectValue);
    row["gsnap_id"] = each.gsnap_id;
    row["from"] = ToString(each.from);
    row["to"] = ToString(each.to);
    row["reason"] = each.reason;
    rows.append(row);
  }
  return rows;
}

// Carries the plan out and makes sure that nothing of it is left to be done; throws otherwise.
void Repair(const std::string& groupId, const RepairPlan& plan) {
  VrelDRGroup::Operation::GsnapshotRepair operation(groupId);
  const bool ran = operation.Run("");
  const RepairSight after = LookForRepair(groupId);
  if (ran && after.plan.Empty()) return;
  const RepairPlan done = Done(plan, after);
  Failure failure = CatalogueFailure(
      groupId, "of " + Count(plan.deletions.size() + plan.changes.size(), "change") + " " +
                   std::to_string(done.deletions.size() + done.changes.size()) + " could be made");
  failure.details["deleted"] = DeletionRows(done);
  failure.details["changed"] = ChangeRows(done);
  throw failure;
}

Report RepairReport(const std::string& groupId, const RepairPlan& plan, bool dryRun,
                    const Json::Value& orphans, const Json::Value& incomplete) {
  Report report;
  const std::string about = "group " + Quote(groupId);
  report.AddText(plan.Empty() ? "Nothing to repair in " + about + "."
                              : (dryRun ? "To be repaired in " : "Repaired ") + about + ":");
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"dry_run", "Dry run"}, dryRun);
  report.AddTable({"deleted", "Deleted"},
                  {{"gsnap_id", dryRun ? "TO DELETE" : "DELETED"}, {"reason", "REASON"}},
                  DeletionRows(plan));
  report.AddTable({"changed", "Changed"},
                  {{"gsnap_id", dryRun ? "TO CHANGE" : "CHANGED"},
                   {"from", "FROM"},
                   {"to", "TO"},
                   {"reason", "REASON"}},
                  ChangeRows(plan));
  report.AddTable({"left_snapshots", "Left"},
                  {{"target_id", "LEFT ON TARGET"}, {"tsnap_id", "TARGET SNAPSHOT"}}, orphans);
  if (!incomplete.empty()) {
    report.AddText(
        "Incomplete group snapshots are left as they are: delete them, or restore them "
        "with --force.");
  }
  report.AddTable({"incomplete", "Incomplete"},
                  {{"gsnap_id", "INCOMPLETE"}, {"missing_targets", "LACKS TARGET"}}, incomplete);
  return report;
}

Report RunSnapshotRepair(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const bool dryRun = args.Has("--dry-run");
  const GroupLock lock(groupId);
  RequireCatalogue(groupId, dryRun ? Access::kRead : Access::kWrite);
  const RepairSight sight = LookForRepair(groupId);
  const RepairPlan& plan = sight.plan;
  RefuseForeign(groupId, plan);
  const Json::Value orphans = Orphans(sight);
  const Json::Value incomplete = IncompleteRows(warnings, groupId, sight);
  if (!dryRun && !plan.Empty()) {
    Confirm(args, Loss(plan), args.Has("--json") ? std::string() : Preview(plan));
    Repair(groupId, plan);
  }
  return RepairReport(groupId, plan, dryRun, orphans, incomplete);
}

}  // namespace

Verb SnapshotRepair() {
  return {
      "snapshot repair",
      "make a group's catalogue agree with its targets",
      {"Compares it with the snapshots that the targets really have. Deletes group snapshots that "
       "are only half recorded, and sets the status of the others: ready when all their target "
       "snapshots are there, bad when a target or a target snapshot is gone, unknown when a target "
       "cannot be asked, as on a volume that is not mounted. One that is bad stays bad.",
       "Group snapshots that lack a part of a target of the group are named and left as they are.",
       "Shows first what it is going to change. The report names target snapshots that stay on "
       "their targets although nothing records them any more."},
      "Half recorded group snapshots are lost; the status of others changes.",
      {GroupArgument("the group")},
      {Flag("--dry-run", "only show what would be changed"), Yes()},
      RunSnapshotRepair,
      "repair"};
}

}  // namespace drgroupctl
