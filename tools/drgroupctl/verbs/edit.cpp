#include <vreldr/operation.h>
#include <vreldrgroup/replication/action_words.h>
#include <vreldrnode/dr_node.h>

#include <map>
#include <set>

#include "action/group_action.h"
#include "action/plan_uses.h"
#include "action/plans.h"
#include "action/removal.h"
#include "command/confirm.h"
#include "host/host.h"
#include "output/console.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDR::DRPlan;

// The targets of a group by how far they have come, as after an interruption.
struct EditState {
  std::vector<std::string> fresh;           // one plan, to another volume
  std::vector<std::string> begun;           // a second plan, to the wanted volume
  std::map<std::string, DRPlan> old_plans;  // of both kinds
  std::vector<std::string> Open() const {
    std::vector<std::string> all = begun;
    all.insert(all.end(), fresh.begin(), fresh.end());
    return all;
  }
  std::vector<DRPlan> OldPlans() const {
    std::vector<DRPlan> plans;
    for (const auto& [target, plan] : old_plans) plans.push_back(plan);
    return plans;
  }
};

std::string Title(const Group& group) {
  return "edit of group " + Quote(group.id);
}

bool IsOn(const DRPlan& plan, const std::string& volume) {
  VrelDR::TargetEntry entry;
  return FindTarget(plan.GetDRTargetId(), entry) && entry.volume == volume;
}

EditState LookAt(const Group& group, const std::string& volume) {
  EditState state;
  for (const std::string& target : TargetIds(group)) {
    const std::vector<DRPlan> plans = PlansOf(target);
    if (plans.size() == 1 && IsOn(plans[0], volume)) continue;  // it is where it should be
    const bool isBegun = plans.size() == 2 && !IsOn(plans[0], volume) && IsOn(plans[1], volume);
    if (plans.size() != 1 && !isBegun) throw NoOnePlan(target, plans);
    (isBegun ? state.begun : state.fresh).push_back(target);
    state.old_plans[target] = plans[0];
  }
  return state;
}

Prepared PreparePlans(const Group& group, const EditState& state, const std::string& volume,
                      Json::Value& params) {
  params[Param::kVolume] = volume;
  params[Param::kNode] = VrelDRNode::DRNode::getLocalNodeId();
  for (const std::string& target : state.begun) {
    params[Param::kTargetPlans][target] = state.old_plans.at(target).GetPlanId();
  }
  Prepared prepared = Prepare(FindTask("edit_prepare"), group.id, state.fresh, params);
  prepared.title = Title(group);
  return prepared;
}

// What the later action does, of which it can be asked now whether it will be refused.
Prepared PrepareOldOnes(const Group& group, const EditState& state) {
  const auto make = [&state](const std::string& target) {
    return std::make_unique<VrelDR::Operation::PlanDelete>(state.old_plans.at(target).GetPlanId(),
                                                           true, true, true);
  };
  return PrepareDirect(FindTask("edit"), make, group.id, state.Open());
}

// The first sync of the new plans: the action "sync" would refuse targets with two.
Prepared PrepareFirstSync(const Group& group, const EditState& state) {
  std::map<std::string, std::string> plans;
  for (const std::string& target : state.Open()) {
    plans[target] = PlansOf(target).back().GetPlanId();
  }
  const auto make = [plans](const std::string& target) {
    VrelDR::DataSyncParam param;
    param.meta = {VrelDRGroup::ActionPolicy::kTakenByActions, false, false, ""};
    return std::make_unique<VrelDR::Operation::PlanSync>(plans.at(target), param);
  };
  Prepared prepared = PrepareDirect(FindTask("sync"), make, group.id, state.Open());
  prepared.title = Title(group);
  prepared.plans = plans;
  return prepared;
}

// Throws unless nothing is going to be refused. With --dry-run the report that ends the verb.
std::optional<Report> CheckAll(const Group& group, const Prepared& making, const EditState& state,
                               const Removal& removal, const Arguments& args, Warnings& warnings) {
  std::vector<Check> checks = CheckTargets(making);
  for (const Check& each : CheckTargets(PrepareOldOnes(group, state))) checks.push_back(each);
  std::vector<PlannedUse> uses;
  for (const DRPlan& plan : state.OldPlans()) {
    for (PlannedUse& each : UsesOfDeletion(plan, true)) uses.push_back(std::move(each));
  }
  const InUse inUse(uses, args);
  AddInUse(inUse, checks);
  const std::string title = Title(group);
  if (const auto refusal = RefusalOf(title, checks)) throw Failure(*refusal);
  removal.RequireUnclaimed(title, args);
  inUse.Warn(warnings);
  if (!args.Has("--dry-run")) return std::nullopt;
  Report report;
  report.AddText("The " + title + " would be begun: every check passed.");
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"task", "Task"}, "edit");
  AddChecks(report, checks);
  removal.AddTo(report);
  return report;
}

// Fills the new copies. When that fails the new plans go, and all is as it was before.
void FillCopies(const Prepared& making, const Group& group, const EditState& state,
                const Arguments& args) {
  try {
    Run(PrepareFirstSync(group, state), args);
  } catch (Failure& failure) {
    const std::vector<std::string> open = state.Open();
    std::set<std::string> targets(open.begin(), open.end());
    const bool isUndone = making.action->Revert(targets) == 0;
    failure.message += isUndone ? "; the new plans are removed again, the old ones go on"
                                : "; the old plans go on, and some of the new ones could not be "
                                  "removed: see \"drgroupctl plan list\"";
    throw;
  }
}

void RemoveOldPlans(const Group& group, const EditState& state, const Json::Value& map,
                    const Arguments& args) {
  Json::Value params(Json::objectValue);
  params[Param::kTargetPlans] = map;
  try {
    Run(Prepare(FindTask("edit"), group.id, state.Open(), params), args);
  } catch (Failure& failure) {
    failure.message += "; the new plans are filled: the same command goes on with removing the old";
    throw;
  }
}

void WarnOfGroups(Warnings& warnings, const EditState& state) {
  std::set<std::string> groups;
  for (const auto& [target, plan] : state.old_plans) {
    for (const std::string& id : GroupsOfTargets({plan.GetDRTargetId()})) groups.insert(id);
  }
  if (groups.empty()) return;
  warnings.Print("group " + Quote(Join({groups.begin(), groups.end()}, ", ")) +
                 " has DR copies that are removed, and can be used no more without them");
}

Json::Value Rows(const Group& group, const EditState& state) {
  Json::Value rows(Json::arrayValue);
  for (const std::string& target : TargetIds(group)) {
    const auto old = state.old_plans.find(target);
    Json::Value row = PlanRow(RequireOnePlan(target));
    row["result"] = old == state.old_plans.end() ? "nothing to do" : "done";
    row["old_dr_target_id"] = old == state.old_plans.end() ? "" : old->second.GetDRTargetId();
    rows.append(row);
  }
  return rows;
}

Report RunEdit(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const std::string volume = args.Text("--volume");
  const ActionLock lock(groupId, args);
  const Group group = LoadGroup(groupId);
  RequireVolume(volume);
  const EditState state = LookAt(group, volume);
  Json::Value params(Json::objectValue);
  const Prepared making = PreparePlans(group, state, volume, params);
  const Removal removal(state.OldPlans(), TargetIds(group));
  if (const auto report = CheckAll(group, making, state, removal, args, warnings)) return *report;
  if (!state.old_plans.empty()) {
    WarnOfGroups(warnings, state);
    Confirm(args, "replace the DR copies of " + Count(state.old_plans.size(), "target") +
                      " of group " + Quote(groupId) + " by new ones, and remove " + removal.Text());
    Run(making, args);
    FillCopies(making, group, state, args);
    RemoveOldPlans(group, state, params[Param::kTargetPlans], args);
  }
  removal.Finish();

  Report report;
  report.AddText("The DR copies of group " + Quote(groupId) + " are on volume " + Quote(volume) +
                 ".");
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"task", "Task"}, "edit");
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"result", "RESULT"},
                   {"old_dr_target_id", "OLD DR COPY"},
                   {"dr_target_id", "DR COPY"},
                   {"dr_volume", "VOLUME"},
                   {"plan_id", "PLAN"}},
                  Rows(group, state));
  removal.AddTo(report);
  return report;
}

}  // namespace

Verb Edit() {
  return {"edit",
          "move the DR copies of a group to another volume",
          {"Makes a second plan for each target, fills its copy by a first sync, and only then "
           "removes the old plan with its copy and the snapshots of that. The targets are "
           "protected throughout.",
           "A failure before the old plans are removed removes the new ones. After an interruption "
           "the same command goes on.",
           kClaims, kInUse},
          "The old DR copies are lost with their snapshots.",
          {GroupArgument("the group")},
          {{"--volume", Value::kVolume, "V", "the volume that takes the new DR copies", true},
           ForceClaims(),
           GoOnInUse(),
           DryRun(),
           Yes()},
          RunEdit,
          "edit"};
}

}  // namespace drgroupctl
