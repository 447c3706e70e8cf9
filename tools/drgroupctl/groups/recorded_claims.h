#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "output/failure.h"

namespace drgroupctl {

// That a catalogue records a target snapshot, or the copy of it on the other side of a plan, which
// has the same identifier.
struct RecordedClaim {
  std::string target_id;
  std::string text;  // 'is recorded in group snapshot "g-gsnap-1", which is locked'
};

// How much is found out of each target snapshot: one claim is enough to let it stay, and spares the
// other catalogues the question.
enum class Evidence { kAll, kFirst };

// What the catalogues of all groups record of some target snapshots. Each is asked about those
// alone.
class RecordedClaims {
 public:
  // `likely` are the groups that record most of them; they are asked first.
  explicit RecordedClaims(std::set<std::string> snapIds, Evidence evidence = Evidence::kAll,
                          const std::vector<std::string>& likely = {});

  const std::vector<RecordedClaim>& On(const std::string& snapId) const;
  // Of the catalogues that cannot be read: each may record any of the snapshots.
  const std::vector<Failure>& Doubts() const { return doubts_; }

 private:
  void Read(const std::string& groupId, const std::set<std::string>& snapIds);

  std::map<std::string, std::vector<RecordedClaim>> claims_;  // by target snapshot
  std::vector<Failure> doubts_;
};

}  // namespace drgroupctl
