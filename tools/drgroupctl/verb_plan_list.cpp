#include "action/plans.h"
#include "verb_functions.h"

namespace drgroupctl {

Report PlanList(const Arguments&) {
  Json::Value rows(Json::arrayValue);
  for (const VrelDR::DRPlan& plan : AllPlans()) rows.append(PlanRow(plan));
  Report report;
  report.AddTable({"plans", "Plans"}, PlanColumns(), rows);
  return report;
}

}  // namespace drgroupctl
