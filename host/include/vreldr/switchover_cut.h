#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>

#include "vrelcore/export.h"
#include "vreldr/cut.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

// As long as one lives, the last snapshots that switchovers of this thread take are of one cut:
// each source is made unwritable before and stays so, and therefore no snapshot has what was
// written after something acknowledged that another one has not - unless somebody works with
// replicas that are switched over already while others are still to be. The last one that was made
// counts. The library needs nothing of this; it is there for who switches over several targets as
// one.
//
// The cut's grade is kWritersHeld, and its skew the time from the first source's being unwritable
// to the last one's. It is kNone from the first source on that somebody can still write, as the
// caller goes on over that (InUseAllowed) or the system refuses nobody.
class VREL_API SwitchoverCut {
 public:
  // Of so many targets in all. `begun` is a snapshot of such a cut that an interrupted run has
  // begun and that this one goes on with: what was written to the copies meanwhile is not known, so
  // its grade is kNone then. Any other snapshot, and an empty one, begins a new cut.
  explicit SwitchoverCut(int members, const Operation::Snapshot& begun = {});
  ~SwitchoverCut();
  SwitchoverCut(const SwitchoverCut&) = delete;
  SwitchoverCut& operator=(const SwitchoverCut&) = delete;

  // The cut as it would be with the plan's source, which is quiet now, or nothing: none lives in
  // this thread, or the plan had a part in it before, as one that is taken back. For the host.
  static std::optional<CutInfo> Join(const std::string& planId, bool isUnwritable);

 private:
  using Clock = std::chrono::steady_clock;

  SwitchoverCut* const before_;  // that was the last one
  CutInfo info_;
  std::set<std::string> plans_;
  std::optional<Clock::time_point> begin_;
  std::chrono::seconds gone_before_{0};  // since the beginning of the cut that this goes on with
};

}  // namespace VrelDR
