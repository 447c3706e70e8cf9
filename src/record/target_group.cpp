#include "vreldrgroup/record/target_group.h"

namespace VrelDRGroup {

TargetList::TargetList(const std::vector<VrelDR::Target>& targets, const std::string& groupId)
    : groupId_(groupId), targets_(targets) {}

std::string TargetList::GetId() const {
  return groupId_;
}
std::string TargetList::GetName() const {
  return groupId_;
}
std::vector<VrelDR::Target> TargetList::ListTargets() const {
  return targets_;
}

}  // namespace VrelDRGroup
