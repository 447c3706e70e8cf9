#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>

namespace drgroupctl {

// The snapshots of some targets that the targets' plans hold or are going to send.
class PlanHolds {
 public:
  // Looks at the plans of all targets at once. Throws when what they hold cannot be told.
  explicit PlanHolds(const std::set<std::string>& targets);

  // The identifiers of all of them.
  std::set<std::string> SnapIds() const;

  // By which plan the snapshot is held, why, and what releases it; empty when it is not.
  std::string Find(const std::string& target, const std::string& snapId) const;

 private:
  std::map<std::pair<std::string, std::string>, std::string> holds_;  // by target and snapshot
};

}  // namespace drgroupctl
