#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vreldr/plan.h"
#include "vreldr/snapshot.h"

// How messages speak of plans.
namespace VrelDR {

// "plan "ID" of target "a"".
std::string NameOf(const DRPlan& plan);

// "the main side" or "the DR side", whichever has the target.
std::string SideOf(const DRPlan& plan, const std::string& targetId);

// "2026-11-21 14:03:59", in the time of this place.
std::string TimeText(std::uint32_t time);

// The newest of the snapshots, newest first, with their times; "none" when there are none.
std::string ListText(const std::vector<Operation::Snapshot>& snapshots);

}  // namespace VrelDR
