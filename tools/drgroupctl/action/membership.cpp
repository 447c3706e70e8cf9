#include "action/membership.h"

#include <algorithm>
#include <set>

#include "action/plans.h"
#include "groups/catalogue_view.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

std::map<std::string, VrelDR::DRPlan> OnePlans(const Group& group) {
  std::map<std::string, VrelDR::DRPlan> found;
  for (const VrelDR::Target& each : group.targets) {
    std::vector<VrelDR::DRPlan> plans = PlansOf(each.GetId());
    if (plans.size() > 1) throw NoOnePlan(each.GetId(), plans);
    if (!plans.empty()) found.emplace(each.GetId(), std::move(plans.front()));
  }
  return found;
}

const std::string& OtherCopy(const VrelDR::DRPlan& plan, const std::string& targetId) {
  return plan.GetProtectedTargetId() == targetId ? plan.GetDRTargetId()
                                                 : plan.GetProtectedTargetId();
}

std::vector<std::string> GroupsOfCopies(const std::map<std::string, VrelDR::DRPlan>& plans,
                                        const std::vector<std::string>& changing) {
  std::set<std::string> all;
  std::set<std::string> lasting;
  for (const auto& [target, plan] : plans) {
    const std::string& copy = OtherCopy(plan, target);
    all.insert(copy);
    if (std::ranges::find(changing, target) == changing.end()) lasting.insert(copy);
  }
  std::vector<std::string> groups;
  for (const std::string& id : GroupsOfTargets(all)) {
    const Group group = LoadGroup(id);
    const bool isOfCopies = std::ranges::all_of(
        group.targets, [&](const VrelDR::Target& each) { return all.contains(each.GetId()); });
    const bool hasAll =
        std::ranges::all_of(lasting, [&](const std::string& copy) { return group.Has(copy); });
    if (isOfCopies && hasAll) groups.push_back(id);
  }
  return groups;
}

std::int64_t NextGsnapTime(const std::string& groupId) {
  const auto latest = ListGsnaps(groupId, true);
  return latest.empty() ? 0 : latest.front().gsnap_time + 1;
}

void RequireNoOtherChange(const Group& group, const std::string& change) {
  if (group.changing.empty() || group.changing == change) return;
  const std::size_t verb = group.changing.find(' ');
  throw Failure(ExitCode::kRefused,
                "group " + Quote(group.id) + ": a change of its targets was interrupted: finish " +
                    "it with \"drgroupctl group " + Printable(group.changing.substr(0, verb)) +
                    " " + Printable(group.id) + Printable(group.changing.substr(verb)) +
                    "\" and the options that it was begun with");
}

void RequireOneCopy(const std::string& groupId, const std::vector<VrelDR::Target>& targets) {
  std::set<std::string> ids;
  for (const VrelDR::Target& each : targets) ids.insert(each.GetId());
  for (const std::string& id : ids) {
    for (const VrelDR::DRPlan& plan : PlansOf(id)) {
      const std::string& other = OtherCopy(plan, id);
      if (!ids.contains(other)) continue;
      throw Failure(ExitCode::kRefused, "group " + Quote(groupId) + ": target " + Quote(id) +
                                            " and target " + Quote(other) +
                                            " are the two copies of plan " +
                                            Quote(plan.GetPlanId()) + ": name one of them");
    }
  }
}

void AddMembers(Group& group, const std::vector<VrelDR::Target>& targets, std::int64_t since) {
  for (const VrelDR::Target& each : targets) {
    if (group.Has(each.GetId())) continue;
    group.targets.push_back(each);
    if (since != 0) group.since[each.GetId()] = since;
  }
  WriteDefinition(group);
}

void RemoveMember(Group& group, const std::string& targetId) {
  std::erase_if(group.targets,
                [&](const VrelDR::Target& each) { return each.GetId() == targetId; });
  group.since.erase(targetId);
  WriteDefinition(group);
}

}  // namespace drgroupctl
