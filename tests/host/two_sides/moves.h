#pragma once

#include <functional>
#include <string>

#include "world.h"

namespace two_sides {

// In the line of a trace that tells how a driver ended: "main's switchover ends: done".
inline constexpr const char* kOf = "'s ";
inline constexpr const char* kEnds = " ends: ";

// One thing that may happen next, as a line of a trace, and what the world is like after it.
using Taker = std::function<void(const std::string& what, World&& after)>;

// Everything that may happen next.
void ForEachNext(const World& world, Mutation mutation, const Taker& take);

// A driver that is going to run an operation on the node, or to settle. `keep` is the side that
// kResolve keeps.
Driver NewDriver(World& world, Side at, Op op, Side keep);

// Runs an operation, or without one settles, and nothing goes wrong meanwhile.
VrelDR::Protocol::Outcome RunAlone(World& world, Side at, Op op, Side keep, Mutation mutation);

// Both nodes come back, and whatever was on its way is lost: what a crash has left on a side alone
// is finished, and both nodes settle until nothing changes any more.
void SettleAll(World& world, Mutation mutation);

}  // namespace two_sides
