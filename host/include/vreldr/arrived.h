#pragma once

#include <cstdint>
#include <string>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

// What a plan's replica can take over with.
struct VREL_API ArrivedSnapshots {
  // The snapshot that arrived last, as the records have it; empty when none has.
  std::string recorded_id;
  std::uint32_t recorded_time = 0;  // of it; 0 when no record of it is left
  // Whether the replica has that one no more: its bytes, or its record, are gone.
  bool is_gone = false;
  // The newest snapshot that arrived and is there; an empty one when there is none. It is another
  // one than the recorded one when that is gone, and when one has arrived that is not recorded yet.
  Operation::Snapshot newest;
  // Whether a forced failover would put the plan back into the failover that it was reprotected
  // from (Operation::PlanForcedFailover): then none of these is taken over with.
  bool is_going_back = false;
};

// Looks which of a plan's snapshots the replica really has. The library needs nothing of this; it
// is there for a tool that chooses a snapshot to take over with.
class VREL_API ArrivedReporter : public DRErrRecorder {
 public:
  explicit ArrivedReporter(const std::string& planId) : plan_id_(planId) {}

  // False when the plan does not exist or the replica cannot be asked: then nothing is known to be
  // gone, and `recorded_id` and `recorded_time` alone are told, if the records could be read.
  bool Read(ArrivedSnapshots& arrived) const;

 private:
  std::string plan_id_;
};

}  // namespace VrelDR
