#include "action/group_action.h"
#include "action/plan_status.h"
#include "action/plans.h"
#include "action/removal.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

// One row for each plan of each target of a group; for a group that cannot be read, one with the
// reason.
void AddGroup(const std::string& groupId, const std::vector<std::string>& targets,
              const PlanSight& sight, const std::vector<VrelDR::TargetRemains>& remains,
              Json::Value& rows) {
  const auto add = [&](const std::string& target, Json::Value row) {
    std::vector<std::string> problems;
    if (row["problem"] != Json::Value("")) problems.push_back(row["problem"].asString());
    for (const auto& each : RemainsOf(target, remains)) problems.push_back(RemainsText(each));
    row["problem"] = Join(problems, "; ");
    row["group_id"] = groupId;
    row["target_id"] = target;
    rows.append(row);
  };
  for (const std::string& target : targets) {
    const auto plans = sight.by_target.find(target);
    if (plans == sight.by_target.end()) {
      add(target, UnprotectedRow());
      continue;
    }
    for (const VrelDR::DRPlan& plan : plans->second) {
      const auto status = sight.statuses.find(plan.GetPlanId());
      add(target,
          StatusRow(plan, status == sight.statuses.end() ? VrelDR::kSiteUnknown : status->second));
    }
  }
}

}  // namespace

Report Status(const Arguments& args) {
  std::vector<Group> groups;
  Json::Value rows(Json::arrayValue);
  if (args.Has("GROUP")) {
    groups.push_back(LoadGroup(args.Text("GROUP")));
  } else {
    for (const std::string& id : ListGroupIds()) {
      try {
        groups.push_back(LoadGroup(id));
      } catch (const Failure& failure) {  // one bad group does not hide the others
        Json::Value row = UnprotectedRow();
        row["group_id"] = id;
        row["target_id"] = "";
        row["state"] = "unknown";
        row["problem"] = failure.message;
        rows.append(row);
      }
    }
  }
  std::vector<std::string> targets;
  for (const Group& each : groups) {
    for (const std::string& id : TargetIds(each)) targets.push_back(id);
  }
  const PlanSight sight = LookAtPlans(targets);
  const std::vector<VrelDR::TargetRemains> remains = ListRemains();
  for (const Group& each : groups) AddGroup(each.id, TargetIds(each), sight, remains, rows);

  std::vector<Column> columns = StatusColumns();
  columns.insert(columns.begin(), {"target_id", "TARGET"});
  if (!args.Has("GROUP")) columns.insert(columns.begin(), {"group_id", "GROUP"});
  Report report;
  report.AddTable({"targets", "Targets"}, columns, rows);
  return report;
}

}  // namespace drgroupctl
