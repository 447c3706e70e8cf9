#pragma once

#include <vreldr/target.h>

#include <string>
#include <vector>

#include "vreldrgroup/export.h"

namespace VrelDRGroup {

// A named set of targets, through which operations learn what to act on.
class VRELDRGROUP_API TargetGroup {
 public:
  TargetGroup() = default;
  virtual ~TargetGroup() = default;
  TargetGroup(const TargetGroup&) = default;
  TargetGroup& operator=(const TargetGroup&) = default;

  virtual std::string GetId() const = 0;
  virtual std::string GetName() const = 0;
  virtual std::vector<VrelDR::Target> ListTargets() const = 0;
};

// A group that is a plain list. Its name is its identifier.
class VRELDRGROUP_API TargetList : public TargetGroup {
 public:
  TargetList(const std::vector<VrelDR::Target>& targets, const std::string& groupId);
  ~TargetList() override = default;

  std::string GetId() const override;
  std::string GetName() const override;
  std::vector<VrelDR::Target> ListTargets() const override;

 private:
  std::string groupId_;
  std::vector<VrelDR::Target> targets_;
};

}  // namespace VrelDRGroup
