#pragma once

#include <string>
#include <string_view>

#include "base/status.h"

namespace VrelDR {

// Calls that a test can let fail for one target, to see what becomes of the others: the tests'
// library (see test_hook.h) takes "step@target" from VRELDR_FAIL_POINT in the environment, or
// several of them with commas between. Without that library a fail point does nothing. All but
// "cut" and the last are reached before the call has done anything.
inline constexpr std::string_view kFailCreate = "create";
inline constexpr std::string_view kFailRemove = "remove";
inline constexpr std::string_view kFailTake = "take";
inline constexpr std::string_view kFailCut = "cut";  // while others of the cut are made
inline constexpr std::string_view kFailTakeUp = "take_up";
inline constexpr std::string_view kFailAsk = "ask";  // whether a snapshot exists
inline constexpr std::string_view kFailQuiesce = "quiesce";
inline constexpr std::string_view kFailPromote = "promote";
inline constexpr std::string_view kFailShip = "ship";  // the target is the replica
// Shipping by what changed, in place of which the other way is taken; the target is the replica.
inline constexpr std::string_view kFailShipByChanges = "ship.by_changes";
inline constexpr std::string_view kFailShipMiddle = "ship.middle";  // after some bytes were sent

// kErrIo when a test lets `step` fail for the target, else good.
Status FailPoint(std::string_view step, const std::string& targetId);

}  // namespace VrelDR
