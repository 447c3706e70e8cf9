#include "action/membership.h"

#include <algorithm>
#include <set>

#include "action/plans.h"
#include "groups/catalogue_view.h"

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
