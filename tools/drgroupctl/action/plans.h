#pragma once

#include <vreldr/plan.h>

#include <optional>
#include <string>
#include <vector>

#include "output/failure.h"
#include "output/report.h"

// The plans of this host, with failures thrown.
namespace drgroupctl {

// The plans of a target, oldest first; of a DR copy, those that it is the copy of.
std::vector<VrelDR::DRPlan> PlansOf(const std::string& target);
std::vector<VrelDR::DRPlan> AllPlans();
// Nothing when there is no such plan.
std::optional<VrelDR::DRPlan> FindPlan(const std::string& planId);
VrelDR::DRPlan RequirePlan(const std::string& planId);
// The one plan of the target; throws what NoOnePlan says when it has none or several.
VrelDR::DRPlan RequireOnePlan(const std::string& target);

// Why no action can take the plan of a target that has these, of which there is not exactly one.
Failure NoOnePlan(const std::string& target, const std::vector<VrelDR::DRPlan>& plans);

// The copy that does not work.
const std::string& OtherCopyOf(const VrelDR::DRPlan& plan);

// The last snapshot that arrived for a plan; empty when there is none.
std::string LastArrived(const std::string& planId);

// Whether `a` and `b` are the same plan in the same state.
bool IsSame(const VrelDR::DRPlan& a, const VrelDR::DRPlan& b);

// "main to DR" or "DR to main".
std::string DirectionName(const VrelDR::DRPlan& plan);
// "unprotected", "protected" or "failed over"; "N plans" for several.
std::string StateName(const std::vector<VrelDR::DRPlan>& plans);
std::string StateName(const VrelDR::DRPlan& plan);
// The same and which copy works, for people.
std::string DescribeState(const std::vector<VrelDR::DRPlan>& plans);

// The identifiers of the plans in quotes, with commas between.
std::string PlanNames(const std::vector<VrelDR::DRPlan>& plans);

// What every report of a plan has, as columns and as a row.
std::vector<Column> PlanColumns();
Json::Value PlanRow(const VrelDR::DRPlan& plan);

}  // namespace drgroupctl
