#include <vreldr/operation.h>
#include <vreldrgroup/replication/replica.h>

#include <algorithm>
#include <map>

#include "action/group_action.h"
#include "action/takeover.h"
#include "catalogue_view.h"
#include "console.h"
#include "gsnap_completeness.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

// A failover to the last snapshot that arrived, which the library's action does not know: its own
// operations, undone as it undoes them.
Prepared PrepareToLast(const Group& group, const std::vector<Takeover>& takeovers, bool isForced) {
  std::map<std::string, std::pair<std::string, std::string>> plans;
  for (const Takeover& each : takeovers) {
    plans[each.target] = {each.plan.GetPlanId(), each.snap_id};
  }
  const auto make = [plans, isForced](const std::string& target) {
    const auto& [planId, snapId] = plans.at(target);
    std::unique_ptr<VrelDR::DROperation> operation;
    if (isForced) {
      operation =
          std::make_unique<VrelDR::Operation::PlanForcedFailover>(planId, snapId, Json::Value());
    } else {
      operation = std::make_unique<VrelDR::Operation::PlanFailover>(planId, snapId, Json::Value());
    }
    return operation;
  };
  const Task& task = FindTask("failover");
  const auto undo = [&task](std::set<std::string>& targets) {
    return task.make()->Revert(targets);
  };
  Prepared prepared = PrepareDirect(std::make_unique<DirectAction>(task.name, make, undo), group.id,
                                    TargetIds(group));
  prepared.is_reverted = true;
  if (!isForced) prepared.checker = FindTask(task.checker).make();
  return prepared;
}

Prepared PrepareToGsnap(const Group& group, const std::string& gsnapId,
                        const std::vector<Takeover>& takeovers, bool isForced) {
  Json::Value params(Json::objectValue);
  params["gsnap_id"] = gsnapId;
  params["is_forced"] = isForced;
  std::vector<std::string> targets;
  targets.reserve(takeovers.size());
  for (const Takeover& each : takeovers) targets.push_back(each.driven);
  return Prepare(FindTask("failover"), group.id, targets, params);
}

bool IsSourceWell(const std::vector<Takeover>& takeovers) {
  return std::all_of(takeovers.begin(), takeovers.end(),
                     [](const Takeover& each) { return each.is_source_alive; });
}

}  // namespace

Report Failover(const Arguments& args) {
  const std::string groupId = args.Text("GROUP");
  const std::string gsnapId = args.Text("--snapshot");
  const bool isForced = args.Has("--force");
  const ActionLock lock(groupId, args);
  Group group = LoadGroup(groupId);
  std::optional<VrelDRGroup::GsnapshotInfo> gsnap;
  if (!gsnapId.empty()) {
    gsnap = RequireGsnap(gsnapId);
    if (!RequireComplete(*gsnap, "failed over to", isForced).empty()) KeepCovered(group, *gsnap);
  }
  const std::vector<Takeover> takeovers = PlanTakeover(group, gsnap);
  const Prepared prepared = gsnap ? PrepareToGsnap(group, gsnapId, takeovers, isForced)
                                  : PrepareToLast(group, takeovers, isForced);
  std::optional<Report> report = CheckFirst(prepared, args);
  const std::string hint = IsSourceWell(takeovers) ? "every source of group " + Quote(groupId) +
                                                         " is there: \"drgroupctl switchover " +
                                                         groupId + "\" would lose nothing"
                                                   : std::string();
  if (report) {
    if (!hint.empty()) PrintWarning(hint);
    AddTakeover(*report, takeovers);
    return *report;
  }
  const bool isOlder = IsOlderThanRecorded(takeovers);
  if (isForced || isOlder) {
    // Said where there is still a choice.
    if (!hint.empty() && !args.Has("--yes")) PrintWarning(hint);
    Confirm(args,
            "fail group " + Quote(groupId) +
                " over and give up what was written since those snapshots were taken" +
                (isOlder ? ", as the last ones that arrived are gone" : ""),
            LossDetails(takeovers));
  }
  const Course course = Run(prepared, args);
  report = CourseReport(prepared, course, "Failed over group " + Quote(groupId) + ".");
  AddTakeover(*report, takeovers);
  return *report;
}

}  // namespace drgroupctl
