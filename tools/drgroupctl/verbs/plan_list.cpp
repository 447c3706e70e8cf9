#include "action/plans.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunPlanList(const Arguments& /*args*/, Warnings& /*warnings*/) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDR::DRPlan& plan : AllPlans()) rows.append(PlanRow(plan));
  Report report;
  report.AddTable({"plans", "Plans"}, PlanColumns(), rows);
  return report;
}

}  // namespace

Verb PlanList() {
  return {"plan list",
          "list the plans of this host",
          {"Shows for each plan its target and DR copy, whether it failed over, its direction and "
           "which copy works."},
          "Nothing.",
          {},
          {},
          RunPlanList};
}

}  // namespace drgroupctl
