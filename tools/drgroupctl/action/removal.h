#pragma once

#include <json/value.h>
#include <vreldr/plan.h>
#include <vreldr/snapshot.h>
#include <vreldr/target_manager.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "command/verb.h"
#include "output/report.h"

namespace drgroupctl {

// 'target "a-dr" on volume "v2" is being removed ...', with what finishes that.
std::string RemainsText(const VrelDR::TargetRemains& remains);
// The remains among `all` of the target itself, or of the other copy of a plan that it had.
std::vector<VrelDR::TargetRemains> RemainsOf(const std::string& target,
                                             const std::vector<VrelDR::TargetRemains>& all);

// Who locks or records a snapshot of the target, each with its evidence. A catalogue that cannot be
// read may record it.
std::vector<std::string> ClaimsOn(const std::string& target,
                                  const VrelDR::Operation::Snapshot& snapshot);

// The copies that go with plans: exactly what is lost, who has a claim on it, and what earlier
// removals have left to be finished.
class Removal {
 public:
  // Looks at the copies that do not work of `plans`, and at what is left of copies of `targets`.
  Removal(const std::vector<VrelDR::DRPlan>& plans, const std::vector<std::string>& targets);

  bool IsEmpty() const { return copies_.empty() && remains_.empty(); }

  // 'target "a" on volume "v1" (the main side) with 3 snapshots, ...', and which of them are locked
  // or recorded.
  std::string Text() const;

  // Throws unless nobody locks or records any of the snapshots, or --force was given. A catalogue
  // that cannot be read may record all of them. `title` is what is refused.
  void RequireUnclaimed(const std::string& title, const Arguments& args) const;

  // Finishes what earlier removals have left; throws when that fails.
  void Finish() const;

  // Adds what goes to a report: the table "removed".
  void AddTo(Report& report) const;

 private:
  // Who locks or records any of the snapshots.
  std::vector<std::string> Claims() const;
  // What goes, without that.
  std::string Places() const;
  struct Copy {
    std::string plan_id;
    std::string target_id;
    std::string volume;  // empty when the host has no such target
    std::string side;
    std::optional<std::uint64_t> snapshots;  // how many; none when that cannot be told
    std::vector<std::string> claims;         // each with its evidence
  };

  Json::Value Rows() const;

  std::vector<Copy> copies_;
  std::vector<VrelDR::TargetRemains> remains_;
};

}  // namespace drgroupctl
