#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/arrived.h"
#include "vreldr/error.h"
#include "vreldr/plan.h"
#include "vreldr/report.h"

namespace VrelDR {

// One of a plan's targets.
struct VREL_API CopyStanding {
  std::string target_id;
  std::string volume;     // empty when the target does not exist any more
  bool is_there = false;  // it is whole, its volume can be reached and has its bytes
};

// How a plan stands.
struct VREL_API PlanStanding {
  DRPlan plan;
  DRSiteStatus site = kSiteUnknown;  // as Utils::GetPlanLocalSiteStatus tells
  // What of the records could not be read, as messages: then the site's status, the count of
  // pending snapshots or what is recorded as arrived is not known.
  std::vector<std::string> unread;
  CopyStanding source, replica;
  // The running operation, or the last one; see SiteOPJournal. kOpNone when there was none.
  DRPlanOPStatus op = kOpNone;
  OPState op_state = OPState::kDone;
  int op_progress = 0;
  std::string op_message;
  // The snapshot of the source that is being sent, or that an interrupted sync has left to be sent;
  // empty when there is none. It is none of the pending ones.
  std::string hand_snap_id;
  // Snapshots that are still to be sent; nothing when that is not known.
  std::optional<std::size_t> pending_count;
  // What the replica can take over with, or why it could not be asked: then nothing is known to be
  // gone, and only `recorded_id` and `recorded_time` are told.
  ArrivedSnapshots arrived;
  std::string arrived_problem;
  bool is_recorded_known = true;
};

// Looks at many plans at once: at the records of one moment, and at each volume once. The library
// needs nothing of this; it is there for a tool that shows how groups stand.
class VREL_API StandingReader : public DRErrRecorder {
 public:
  // Appends the plans that have one of the targets on one of their sides, oldest first. False when
  // the records cannot be read; a volume that cannot be reached is no failure.
  bool Read(const std::set<std::string>& targetIds, std::vector<PlanStanding>& standings) const;
};

}  // namespace VrelDR
