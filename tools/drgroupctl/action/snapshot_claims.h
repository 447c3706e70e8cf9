#pragma once

#include <vreldr/snapshot.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "action/plan_holds.h"
#include "groups/recorded_claims.h"
#include "output/failure.h"

namespace drgroupctl {

// Why snapshots of one target stay: who locks, records or needs them. The one judgement of what may
// be deleted of a target's own snapshots.
class SnapshotClaims {
 public:
  // Asks the catalogues and the plans of the target about these.
  SnapshotClaims(const std::string& target,
                 const std::vector<VrelDR::Operation::Snapshot>& snapshots, Evidence evidence);

  // Each as it stands behind the snapshot's name, such as "is locked". What cannot be told is a
  // claim on every snapshot, and stands in no list of them.
  std::vector<std::string> On(const VrelDR::Operation::Snapshot& snapshot) const;
  const std::vector<Failure>& Doubts() const { return doubts_; }

 private:
  std::string target_;
  RecordedClaims recorded_;
  std::optional<PlanHolds> holds_;
  std::map<std::string, std::string> needed_;  // by snapshot: by which plan
  std::vector<Failure> doubts_;
};

}  // namespace drgroupctl
