#pragma once

#include <vreldr/plan.h>

#include <string>

namespace bench {

// A target of the host's volume "a" and a plan of it to the volume "b". Failures throw
// std::runtime_error.
class PlannedTarget {
 public:
  // `targetType` as VrelDR::Target has it; a LUN has `size` bytes.
  PlannedTarget(const std::string& id, int targetType, std::uint64_t size);

  const std::string& GetPath() const { return path_; }
  // One sync of the plan. Whether it worked.
  bool Sync() const;
  // Removes the snapshots of both sides but the last.
  void RemoveOld() const;

 private:
  std::string path_;
  int type_;
  VrelDR::DRPlan plan_;
};

}  // namespace bench
