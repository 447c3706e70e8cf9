#include <vreldr/target_operation.h>
#include <vreldrgroup/replication/action_words.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "action/common_cut.h"
#include "action/group_action.h"
#include "action/gsnap_retention.h"
#include "action/gsnap_sides.h"
#include "action/gsnap_surplus.h"
#include "action/plan_holds.h"
#include "action/plans.h"
#include "command/confirm.h"
#include "groups/catalogue.h"
#include "groups/group_store.h"
#include "groups/gsnap_removal.h"
#include "groups/kill_point.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

// A snapshot to be deleted.
struct Surplus {
  VrelDR::Target target;
  std::string snap_id;
  std::uint32_t create_time = 0;
  bool is_deleted = false;
};

// What a pruning of a group deletes.
struct Found {
  std::vector<SurplusGsnap> gsnaps;
  std::vector<Surplus> snapshots;  // that belong to none
};

// Whether an action has taken it and nobody has said anything of it since.
bool IsByAction(const Snapshot& snapshot) {
  return snapshot.meta.description == VrelDRGroup::ActionPolicy::kTakenByActions;
}

// Whether nobody has said anything of it.
bool IsPlain(const Snapshot& snapshot) {
  return snapshot.meta.description.empty() && !snapshot.meta.is_locked;
}

// Adds those of the snapshots that plans hold, have in hand or are going to send: the copies of
// them on the other side, too, as those have the same identifiers.
void AddHeld(const PlanHolds& holds, const std::string& target, const std::vector<Snapshot>& list,
             std::set<std::string>& needed) {
  for (const Snapshot& each : list) {
    if (!holds.Find(target, each.snap_id).empty()) needed.insert(each.snap_id);
  }
}

// Those that may be deleted, or a group snapshot that has them, for all that they tell themselves.
std::vector<SpareSnapshot> SparesAmong(const std::vector<Snapshot>& list, const NeededCuts& needed,
                                       SyncCuts& cuts, Warnings& warnings) {
  std::vector<SpareSnapshot> spares;
  for (const Snapshot& each : list) {
    if (needed.Has(each.cut_id)) continue;
    const SyncCut& cut = cuts.Get(each.cut_id, warnings);
    const bool isByAction = IsByAction(each);
    if (!isByAction && !cut.is_made_by_sync) continue;
    const bool isAlone = isByAction || IsPlain(each);
    spares.push_back({each.snap_id, &cut, each.create_time, isAlone});
  }
  spares.shrink_to_fit();
  std::ranges::sort(spares, {}, &SpareSnapshot::snap_id);
  return spares;
}

// The snapshots that may go of the group's targets and the other copies of their plans. A target
// that is out of reach is passed over: the other copy may need the room all the more. What plans
// hold of all of their snapshots is added to `needed`.
SparesByTarget ListWhatMayGo(Warnings& warnings, const std::vector<VrelDR::DRPlan>& plans,
                             const NeededCuts& neededCuts, SyncCuts& cuts,
                             std::set<std::string>& needed) {
  std::set<std::string> targets;
  for (const VrelDR::DRPlan& plan : plans) {
    targets.insert({plan.GetProtectedTargetId(), plan.GetDRTargetId()});
  }
  const PlanHolds holds(targets);
  SparesByTarget spares;
  for (const VrelDR::DRPlan& plan : plans) {
    for (const std::string& id : {plan.GetProtectedTargetId(), plan.GetDRTargetId()}) {
      const VrelDR::TargetOperation operation(plan.GetProtectedTargetType(), id);
      const std::vector<Snapshot> list = operation.ListSnapshots();
      if (operation.GetErrCode() != 0) {
        warnings.Print("target " + Quote(id) + " is passed over: " + HostMessage(operation));
        continue;
      }
      AddHeld(holds, id, list, needed);
      spares[id] = SparesAmong(list, neededCuts, cuts, warnings);
    }
  }
  return spares;
}

Identifiers IdsOf(const SparesByTarget& spares) {
  Identifiers ids;
  for (const auto& [target, list] : spares) {
    for (const SpareSnapshot& each : list) ids.insert(each.snap_id);
  }
  return ids;
}

// What the catalogues record. What a pruning that was interrupted has left on one side only the
// group snapshot of the other may record.
Identifiers PartsOf(const RecordedGsnaps& recorded) {
  Identifiers parts;
  for (const RecordedGsnap& gsnap : recorded) {
    for (const auto& part : gsnap.info.target_snapshots) parts.insert(part.tsnap_id);
  }
  return parts;
}

Found FindSurplus(Warnings& warnings, const Group& group, const KeepRule& rule,
                  const NeededCuts& cuts) {
  std::vector<VrelDR::DRPlan> plans;
  std::set<std::string> needed;
  std::map<std::string, int> types;
  for (const VrelDR::Target& each : group.targets) {
    plans.push_back(RequireOnePlan(each.GetId()));
    AddNeeded(plans.back(), needed);
    types[plans.back().GetProtectedTargetId()] = each.GetType();
    types[plans.back().GetDRTargetId()] = each.GetType();
  }
  if (cuts.are_all) {
    warnings.Print(
        "snapshots that were taken in cuts stay, as it cannot be told which of them a "
        "failover needs: " +
        cuts.problem);
  }
  SyncCuts syncCuts;
  SparesByTarget spares = ListWhatMayGo(warnings, plans, cuts, syncCuts, needed);
  RecordedGsnaps recorded = AllGsnapsWith(IdsOf(spares));
  const std::set<std::string> ruled = FindRuled(recorded, group, rule);
  Found found;
  found.gsnaps = TakeSurplusGsnaps(recorded, spares, needed, ruled);
  const Identifiers parts = PartsOf(recorded);
  for (const auto& [id, list] : spares) {
    for (const SpareSnapshot& each : list) {
      if (each.is_going_alone && !each.is_of_surplus && needed.count(each.snap_id) == 0 &&
          parts.count(each.snap_id) == 0) {
        found.snapshots.push_back({VrelDR::Target(id, types[id]), each.snap_id, each.create_time});
      }
    }
  }
  std::ranges::stable_sort(found.snapshots, [](const Surplus& a, const Surplus& b) {
    return std::pair(a.target.GetId(), a.create_time) < std::pair(b.target.GetId(), b.create_time);
  });
  return found;
}

Json::Value Rows(const std::vector<Surplus>& surplus) {
  Json::Value rows(Json::arrayValue);
  for (const Surplus& each : surplus) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target.GetId();
    row["snap_id"] = each.snap_id;
    row["time"] = each.create_time;
    row["is_deleted"] = each.is_deleted;
    rows.append(row);
  }
  return rows;
}

Json::Value GsnapRows(const std::vector<SurplusGsnap>& gsnaps) {
  Json::Value rows(Json::arrayValue);
  for (const SurplusGsnap& each : gsnaps) {
    Json::Value row(Json::objectValue);
    row["gsnap_id"] = each.info.gsnap_id;
    row["group_id"] = each.group_id;
    row["time"] = Json::Int64(each.info.gsnap_time);
    row["is_deleted"] = each.is_deleted;
    rows.append(row);
  }
  return rows;
}

template <class List>
std::size_t CountDeleted(const List& list) {
  return static_cast<std::size_t>(
      std::count_if(list.begin(), list.end(), [](const auto& each) { return each.is_deleted; }));
}

std::string CountText(std::size_t snapshots, std::size_t gsnaps) {
  return Count(snapshots, "snapshot") +
         (gsnaps == 0 ? std::string() : " and " + Count(gsnaps, "group snapshot"));
}

Report PruneReport(const Group& group, const std::string& sentence, const Found& found) {
  Report report;
  report.AddText(sentence);
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"deleted_count", "Deleted"}, Json::UInt64(CountDeleted(found.snapshots)));
  report.AddField({"deleted_gsnap_count", "Deleted group snapshots"},
                  Json::UInt64(CountDeleted(found.gsnaps)));
  report.AddTable({"group_snapshots", "Group snapshots"},
                  {{"gsnap_id", "GROUP SNAPSHOT"},
                   {"group_id", "GROUP"},
                   {"time", "TIME", Shown::kTime},
                   {"is_deleted", "DELETED"}},
                  GsnapRows(found.gsnaps));
  report.AddTable({"snapshots", "Snapshots"},
                  {{"target_id", "TARGET"},
                   {"snap_id", "SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"is_deleted", "DELETED"}},
                  Rows(found.snapshots));
  return report;
}

// How far it has come stands before the message.
Failure Stopped(const Group& group, const Found& found, const Failure& why) {
  Failure failure(
      why.code, "group " + Quote(group.id) + ": " +
                    CountText(CountDeleted(found.snapshots), CountDeleted(found.gsnaps)) + " of " +
                    CountText(found.snapshots.size(), found.gsnaps.size()) +
                    " deleted, the same command goes on: " + why.message);
  failure.details = why.details;
  failure.details["snapshots"] = Rows(found.snapshots);
  failure.details["group_snapshots"] = GsnapRows(found.gsnaps);
  return failure;
}

// Whether the snapshot is gone; one that a plan has begun to need stays. Throws when it cannot be
// deleted otherwise.
bool DeleteSnapshot(const VrelDR::Target& target, const std::string& snapId) {
  const VrelDR::TargetOperation operation(target);
  if (operation.DeleteSnapshot(snapId)) return true;
  const int error = operation.GetErrCode();
  if (error == VrelDR::kErrSnapshotMissing) return true;
  if (error == VrelDR::kErrLocked) return false;
  Failure failure(FromHostError(error), HostMessage(operation));
  failure.details["target_id"] = target.GetId();
  throw failure;
}

// The records go first, as each part tells for itself that a sync has made it: what is left of them
// after an interruption is found as a snapshot that belongs to none. Records without parts would
// tell nothing.
void DeleteGsnapsOfCut(const std::vector<SurplusGsnap*>& gsnaps) {
  for (const SurplusGsnap* each : gsnaps) {
    ForgetGsnap(each->group_id, each->info.gsnap_id);
    KillPoint(kPruneForgotten);
  }
  KillPoint(kPruneAllForgotten);
  for (SurplusGsnap* each : gsnaps) {
    for (const VrelDRGroup::TargetSnapshot& part : each->info.target_snapshots) {
      DeleteSnapshot(part.target, part.tsnap_id);
    }
    each->is_deleted = true;
  }
}

// Those of other groups too, whose locks are held all the time: two prunings that want each other's
// groups do not wait for each other for long.
void DeleteGsnaps(const Group& group, Found& found) {
  std::map<std::string, std::unique_ptr<GroupLock>> locks;
  try {
    for (const SurplusGsnap& each : found.gsnaps) {
      if (locks.count(each.group_id) != 0) continue;
      locks[each.group_id] = LockOther(each.group_id, group.id, std::chrono::seconds(5));
      RequireCatalogue(each.group_id, Access::kWrite);
    }
    std::map<std::string, std::vector<SurplusGsnap*>> cuts;
    for (SurplusGsnap& each : found.gsnaps) cuts[each.cut_id].push_back(&each);
    for (const SurplusGsnap& each : found.gsnaps) {
      if (!each.is_deleted) DeleteGsnapsOfCut(cuts[each.cut_id]);
    }
  } catch (const Failure& failure) {
    throw Stopped(group, found, failure);
  }
}

void DeleteSnapshots(const Group& group, Found& found) {
  try {
    for (Surplus& each : found.snapshots) {
      each.is_deleted = DeleteSnapshot(each.target, each.snap_id);
    }
  } catch (const Failure& failure) {
    throw Stopped(group, found, failure);
  }
}

// The rule that the command line gives, or the group's.
KeepRule RuleOf(const Arguments& args, const Group& group) {
  return args.Has("--keep") ? ParseKeep(args.Text("--keep")) : group.keep;
}

std::vector<VrelDR::DRPlan> PlansOfTargets(const Group& group) {
  std::vector<VrelDR::DRPlan> plans;
  for (const VrelDR::Target& each : group.targets) {
    std::ranges::move(PlansOf(each.GetId()), std::back_inserter(plans));
  }
  return plans;
}

Report RunSnapshotPrune(const Arguments& args, Warnings& warnings) {
  const bool isLook = args.Has("--dry-run") || args.Has("--explain");
  std::optional<GroupLock> lock;
  if (!isLook) lock.emplace(args.Text("GROUP"));
  const Group group = LoadGroup(args.Text("GROUP"));
  const KeepRule rule = RuleOf(args, group);
  const std::vector<VrelDR::DRPlan> plans = PlansOfTargets(group);
  const NeededCuts needed = plans.empty() ? NeededCuts() : FindNeededCuts(plans);
  Found found;
  // Without a plan syncs have left nothing: with a rule that is all the better.
  if (rule.IsEmpty() || !plans.empty()) found = FindSurplus(warnings, group, rule, needed);
  Retention retention;
  if (!rule.IsEmpty()) {
    RequireCatalogue(group.id, Access::kRead);
    retention = JudgeGsnaps(group, rule, needed);
  }
  const std::size_t byRule = retention.going.size();
  const std::string count = CountText(found.snapshots.size(), found.gsnaps.size());
  const std::string ruled =
      rule.IsEmpty() ? "" : ", and by its rule " + Count(byRule, "group snapshot");
  const auto report = [&](const std::string& sentence, std::size_t deleted) {
    Report told = PruneReport(group, sentence, found);
    told.AddField({"keep", "Keeps", Shown::kIfAny}, ToText(rule));
    told.AddField({"deleted_by_rule_count", "Deleted by the rule"}, Json::UInt64(deleted));
    if (args.Has("--explain")) AddVerdicts(retention, told);
    return told;
  };
  if (isLook) {
    return report("Would delete " + count + " of group " + Quote(group.id) + ruled + ".", 0);
  }
  if (!found.snapshots.empty() || !found.gsnaps.empty() || byRule != 0) {
    Confirm(args,
            "delete " + count + " that syncs of group " + Quote(group.id) + " have taken" + ruled);
  }
  DeleteGsnaps(group, found);
  DeleteSnapshots(group, found);
  DeleteByRule(group, retention);
  return report("Deleted " + CountText(CountDeleted(found.snapshots), CountDeleted(found.gsnaps)) +
                    " of group " + Quote(group.id) + ruled + ".",
                byRule);
}

}  // namespace

Verb SnapshotPrune() {
  return {
      "snapshot prune",
      "delete what syncs left and what a rule lets go",
      {"Every sync takes a snapshot of each target and needs only the last of them. Deletes, "
       "on both copies, those before it that no plan holds or is going to send and that no "
       "group's catalogue records. The newest cut that all replicas of a group have stays, also "
       "of another group with one of the targets; while a replica cannot be asked, all cuts do. "
       "Refused while the catalogue of any group cannot be read. A "
       "copy that is out of reach is passed over.",
       "Group snapshots that \"sync --dr-group\" has made are deleted in the same way, from the "
       "catalogues of all groups that record that cut, the older ones first, unless one of them is "
       "locked or has a description, or a part of it is out of reach or needed by a plan.",
       "With a rule, the group's (\"group retention\") or that of --keep, those group snapshots in "
       "the group's own catalogue are deleted, too, that the rule does not keep: the oldest first, "
       "each with its target snapshots. Whatever the rule says, those stay that are locked, that a "
       "plan holds or is going to send, whose cut a failover may need, a part of which is out of "
       "reach, and a part of which a group snapshot has that stays. The rule only compares "
       "snapshots with each other: a wrong clock deletes nothing. In a group with a rule the group "
       "snapshots of syncs go by the rule alone, and so they do in the other groups that record "
       "the "
       "same cut, each by its own.",
       "What was deleted before a failure stays deleted, and the same command goes on."},
      "Snapshots and group snapshots that syncs have made, and those that a rule does not keep, "
      "are "
      "lost.",
      {GroupArgument("the group")},
      {{"--keep", Value::kText, "RULE",
        "what stays, as in last=24,hourly=48,daily=30,weekly=8,monthly=12"},
       Flag("--explain", "delete nothing; say of each group snapshot why it stays or goes"),
       Flag("--dry-run", "only show what would be deleted"),
       Yes()},
      RunSnapshotPrune,
      "prune"};
}

}  // namespace drgroupctl
