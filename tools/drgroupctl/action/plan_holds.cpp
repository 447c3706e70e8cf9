#include "action/plan_holds.h"

#include <vreldr/report.h>
#include <vreldr/standing.h>

#include <vector>

#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

template <class Report, class Reporter>
std::vector<std::string> Read(const std::string& planId) {
  Report report;
  const Reporter reporter(planId);
  if (!reporter.ReadReport(report)) ThrowHostError(reporter);
  return report.GetSnapshots();
}

}  // namespace

PlanHolds::PlanHolds(const std::set<std::string>& targets) {
  std::vector<VrelDR::PlanStanding> standings;
  const VrelDR::StandingReader reader;
  if (!reader.Read(targets, standings)) ThrowHostError(reader);
  for (const VrelDR::PlanStanding& each : standings) {
    const std::string& source = each.source.target_id;
    const std::string& planId = each.plan.GetPlanId();
    const std::string plan = "plan " + Quote(planId);
    // The first reason stays.
    if (!each.hand_snap_id.empty()) {
      holds_.emplace(std::pair(source, each.hand_snap_id),
                     "is in hand of " + plan +
                         ", which has begun to send it: a sync goes on with that, \"drgroupctl "
                         "plan drop-shipment " +
                         Printable(planId) + "\" gives it up");
    }
    for (const std::string& id :
         Read<VrelDR::RetentionLockReport, VrelDR::RetentionLockReporter>(planId)) {
      for (const std::string& target : {source, each.replica.target_id}) {
        holds_.emplace(std::pair(target, id),
                       "is held by " + plan +
                           ", which needs it to send only what changes: a sync lets go of it, or "
                           "end the plan with \"drgroupctl unprotect\"");
      }
    }
    if (each.pending_count == 0U) continue;
    for (const std::string& id :
         Read<VrelDR::PendingSnapReport, VrelDR::PendingSnapReporter>(planId)) {
      holds_.emplace(std::pair(source, id),
                     "waits to be sent by " + plan +
                         ": a sync sends it, \"drgroupctl snapshot ship --undo\" takes it off the "
                         "list");
    }
  }
}

std::set<std::string> PlanHolds::SnapIds() const {
  std::set<std::string> ids;
  for (const auto& [snapshot, reason] : holds_) ids.insert(snapshot.second);
  return ids;
}

std::string PlanHolds::Find(const std::string& target, const std::string& snapId) const {
  const auto found = holds_.find({target, snapId});
  return found == holds_.end() ? std::string() : found->second;
}

}  // namespace drgroupctl
