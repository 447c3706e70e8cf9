#include "action/group_action.h"
#include "action/plan_status.h"
#include "action/removal.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

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
    rows.append(std::move(row));
  };
  for (const std::string& target : targets) {
    const auto plans = sight.by_target.find(target);
    if (plans == sight.by_target.end()) {
      add(target, UnprotectedRow());
      continue;
    }
    for (const VrelDR::PlanStanding* each : plans->second) add(target, StatusRow(*each));
  }
}

Report RunStatus(const Arguments& args, Warnings& /*warnings*/) {
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
  report.AddTable({"targets", "Targets"}, std::move(columns), std::move(rows));
  return report;
}

}  // namespace

Verb Status() {
  return {"status",
          "show how the plans of groups stand",
          {"Shows for each target whether it is protected, which copy works and which does not, "
           "when the last snapshot that arrived was taken, what runs, how many snapshots wait to "
           "be sent and what is wrong. A last snapshot that is gone is told, and the newest that "
           "is there shown; an age that is less than 0 is a time ahead of this host's clock. May "
           "be run while an action runs."},
          "Nothing.",
          {{"GROUP", Value::kGroup, "GROUP", "the group; all when left out"}},
          {},
          RunStatus};
}

}  // namespace drgroupctl
