#pragma once

#include <json/value.h>
#include <vreldr/arrived.h>
#include <vreldr/plan.h>

#include <cstdint>
#include <string>

#include "host/host.h"

namespace drgroupctl {

// What the replica of a plan can take over with, as its bytes tell and not the records alone.
struct Arrived {
  // The snapshot that arrived last, as the records have it; empty when none has, and when the
  // records could not be read, which `is_recorded_known` tells.
  std::string recorded;
  bool is_recorded_known = true;
  // Whether the replica has that one: kUnknown when it cannot be asked, with the reason.
  Presence presence = Presence::kPresent;
  std::string problem;
  // What it would take over with: the newest that is there, or the recorded one when it cannot be
  // asked; empty when there is none.
  std::string snap_id;
  std::uint32_t time = 0;  // of that one, 0 when nobody can tell
  // Whether a forced failover takes a reprotection back instead of all this.
  bool is_going_back = false;
};

Arrived LookAtArrived(const VrelDR::DRPlan& plan);
// The same of a look that was taken, with the reason why the replica could not be asked, or none.
Arrived ToArrived(const VrelDR::ArrivedSnapshots& found, const std::string& problem);

// When a snapshot of the plan was taken, as either copy tells it; 0 when neither can.
std::uint32_t TimeOfSnapshot(const VrelDR::DRPlan& plan, const std::string& snapId);

// 'the last snapshot that arrived, "x", is gone from target "a-dr", ...', or that this cannot be
// told; empty when it is there and when none has arrived.
std::string ArrivedProblem(const VrelDR::DRPlan& plan, const Arrived& arrived);

// Puts how long ago `time` was into the row, as "age_seconds", and whether it lies ahead of this
// host's clock by more than a minute, as "is_time_ahead"; the age is negative then. Null and false
// when `time` is 0.
void SetAge(std::uint32_t time, Json::Value& row);

}  // namespace drgroupctl
