#include "action/plan_loss.h"

#include "action/plans.h"
#include "host/arrived.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// What the copy that does not work may have that has come to no other; empty for nothing.
std::string OnlyThere(const VrelDR::DRPlan& plan) {
  if (plan.GetStatus() == VrelDR::kPlanFailover) {
    return "may hold what was written before the failover and never sent";
  }
  return LookAtArrived(plan).is_going_back
             ? "may hold what was written before the reprotection and never sent"
             : "";
}

}  // namespace

std::string PlaceOf(const std::string& target) {
  VrelDR::TargetEntry entry;
  return "target " + Quote(target) +
         (FindTarget(target, entry) ? " on volume " + Quote(entry.volume) : "");
}

std::string LossDetails(const std::vector<VrelDR::DRPlan>& plans, bool withData) {
  std::string text;
  for (const VrelDR::DRPlan& plan : plans) {
    const std::string only = OnlyThere(plan);
    text += "target " + Quote(plan.GetProtectedTargetId()) + ": " +
            Quote(plan.GetWorkingTargetId()) + " works on, and plan " + Quote(plan.GetPlanId()) +
            " replicates it no more; " + PlaceOf(OtherCopyOf(plan)) +
            (only.empty() ? "" : ", which " + only + ",") +
            (withData ? " goes with its snapshots" : " becomes an ordinary target") + "\n";
  }
  return text;
}

}  // namespace drgroupctl
