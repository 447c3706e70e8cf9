#pragma once

#include <optional>

#include "protocol/driver.h"

// What the moves of a driver are made of; for the files that make them.
namespace VrelDR::Protocol {

// The two records, by their part in an attempt.
struct Sight {
  const SideRecord& mine;
  const SideRecord& theirs;

  const SideRecord& Of(Side side) const { return mine.side == side ? mine : theirs; }
};

// Asks the side `to`, with the record of the other one as the evidence.
Move Ask(const Sight& sight, Side to, RequestKind kind, const Attempt& attempt = {});

Move End(Outcome outcome);

// Each of these: the next move, or none when nothing is left to be done of that kind.

// The attempts in the journals that are not the driver's own, and the own one once it is decided.
std::optional<Move> Settle(const Driver& driver, const Sight& sight);

// Both sides are brought to one term, or to the knowledge that they stand apart.
std::optional<Move> Agree(const Driver& driver, const Sight& sight);

// Notes, held records and tombstones, when both sides agree and nothing is begun.
Move TidyUp(const Sight& sight);

}  // namespace VrelDR::Protocol
