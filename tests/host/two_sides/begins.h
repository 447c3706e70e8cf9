#pragma once

#include "world.h"

// What it begins with, before anything goes wrong.
namespace two_sides {

// Two targets that no plan has yet.
World Unprotected(const Budget& budget);

// A plan that was synced once after the first write.
World Protected(const Budget& budget);

// A plan whose DR copy works after an orderly failover, and where both sides know it.
World FailedOver(const Budget& budget);

// Both sides were changed, by a switchover and by an order to the old source, and written, and both
// know it: the main side works and the DR side is diverged.
World BothChanged(const Budget& budget);

}  // namespace two_sides
