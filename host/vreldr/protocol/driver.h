#pragma once

#include <array>
#include <optional>

#include "protocol/request.h"

namespace VrelDR::Protocol {

// Whoever runs an operation, or without one settles what was left and tells the other side. It is
// one process on one of the two nodes and keeps nothing on disk: what it knows are the last records
// that the sides have answered, and another one that starts anew comes to the same end.
struct Driver {
  Side at = Side::kMain;  // the node that it runs on
  Attempt attempt;        // what it is to do; kNone: settle. Its number and base are found out
  bool has_begun = false;
  bool has_seen_commit = false;
  bool goes_back = false;  // something was refused: nothing is done but to settle
  int refusals = 0;
  std::array<std::optional<SideRecord>, kSides.size()> seen;

  bool operator==(const Driver&) const = default;
};

enum class Outcome {
  kAsk,        // one more request
  kDone,       // done; without an operation: both sides agree
  kTakenBack,  // both sides are as before
  kRefused,    // nothing was begun
  kHeld,       // a side is held, and an operator has to say what counts
  kDiverged,   // both were changed, and an operator has to say what counts
};

struct Move {
  Outcome outcome = Outcome::kAsk;
  Side to = Side::kMain;
  Request request;
};

// The next request, or how it ended. `mine` is the record of the driver's own node as it is now.
Move NextMove(Driver& driver, const SideRecord& mine);

// Takes in the answer of the side that was asked. A driver whose request gets no answer ends: what
// the other side has done about it is found out by the next one.
void TakeAnswer(Driver& driver, const Move& move, Refusal refusal, const SideRecord& answer);

}  // namespace VrelDR::Protocol
