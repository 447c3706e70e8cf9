#include "action/waiting.h"

#include <vreldr/operation.h>
#include <vreldr/report.h>
#include <vreldr/standing.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "action/group_action.h"
#include "action/plans.h"
#include "host/host.h"

namespace drgroupctl {

namespace {

// A target whose plan has something to be sent.
struct Waiting {
  std::string target;
  VrelDR::DRPlan plan;
  std::string hand;  // empty when only pending snapshots wait
};

std::vector<Waiting> FindWaiting(const std::vector<std::string>& targets) {
  std::vector<VrelDR::PlanStanding> standings;
  const std::set<std::string> all(targets.begin(), targets.end());
  const VrelDR::StandingReader reader;
  if (!reader.Read(all, standings)) ThrowHostError(reader);
  std::vector<Waiting> waiting;
  for (const VrelDR::PlanStanding& each : standings) {
    // Where that cannot be told sending it tells.
    if (each.hand_snap_id.empty() && each.pending_count == 0U) continue;
    const bool isMain = all.count(each.plan.GetProtectedTargetId()) != 0;
    waiting.push_back({isMain ? each.plan.GetProtectedTargetId() : each.plan.GetDRTargetId(),
                       each.plan, each.hand_snap_id});
  }
  return waiting;
}

VrelDR::Operation::Snapshot FindSnapshot(const VrelDR::DRPlan& plan, const std::string& target,
                                         const std::string& snapId) {
  return VrelDR::TargetOperation(plan.GetProtectedTargetType(), target).GetSnapshot(snapId);
}

// Whether all that was in hand has arrived, and of which cut it is.
void LookAtArrived(const std::vector<Waiting>& waiting, Finished& finished) {
  std::set<std::string> cuts;
  for (const Waiting& each : waiting) {
    if (each.hand.empty()) continue;
    const auto snapshot = FindSnapshot(each.plan, each.plan.GetReplicaTargetId(), each.hand);
    if (!snapshot.snap_id.empty()) cuts.insert(snapshot.cut_id);
  }
  finished.is_any = !cuts.empty();
  if (cuts.size() == 1) finished.cut_id = *cuts.begin();
}

// Something of the cut may have been given up.
void LookWhoLacks(const Group& group, Finished& finished) {
  if (finished.cut_id.empty()) return;
  for (const VrelDR::Target& each : group.targets) {
    const std::string replica = RequireOnePlan(each.GetId()).GetReplicaTargetId();
    const VrelDR::TargetOperation operation(VrelDR::Target(replica, each.GetType()));
    const auto snapshots = operation.ListSnapshots();
    if (operation.GetErrCode() != 0) ThrowHostError(operation);
    const bool has = std::ranges::any_of(
        snapshots, [&](const auto& snapshot) { return snapshot.cut_id == finished.cut_id; });
    if (!has) finished.lacking.push_back(replica);
  }
}

}  // namespace

Finished FinishWaiting(const Group& group, const Arguments& args, const Abreast& abreast) {
  Finished finished;
  const std::vector<Waiting> waiting = FindWaiting(TargetIds(group));
  if (waiting.empty()) return finished;
  std::map<std::string, std::string> plans;
  for (const Waiting& each : waiting) plans[each.target] = each.plan.GetPlanId();
  const auto make = [&plans](const std::string& target) {
    return std::make_unique<VrelDR::Operation::PlanSendWaiting>(plans.at(target));
  };
  Prepared prepared = PrepareDirect(FindTask("sync"), make, group.id, TargetIds(group));
  for (const std::string& target : prepared.targets) {
    if (plans.count(target) == 0) prepared.passed_over[target] = "nothing waits to be sent";
  }
  Run(prepared, args, abreast);
  for (const auto& [target, plan] : plans) {
    VrelDR::SiteOPJournal journal;
    VrelDR::SiteOPJournalReporter(plan).ReadReport(journal);
    if (!journal.GetMessage().empty()) finished.notes[target] = journal.GetMessage();
  }
  LookAtArrived(waiting, finished);
  LookWhoLacks(group, finished);
  return finished;
}

}  // namespace drgroupctl
