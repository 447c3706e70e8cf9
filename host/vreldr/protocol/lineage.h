#pragma once

#include "protocol/side_record.h"

namespace VrelDR::Protocol {

// How two records of a plan stand to each other, as seen from the first.
enum class Relation {
  kBothNone,  // neither knows the plan
  kMineLost,  // the other side has it, and nothing of it is known here
  kTheirsLost,
  kSame,      // the same term
  kOlder,     // the other term follows the one here
  kNewer,     // the one here follows the other one
  kMineLess,  // the other side has heard of a later one from here: the record here is an old one
  kTheirsLess,
  kApart,  // both were changed since they last agreed
};

Relation Compare(const SideRecord& mine, const SideRecord& theirs);

// Whether the side has the term, as far as its line goes back.
bool IsInLine(const SideRecord& record, const std::string& termId);

// Whether the record knows of the plan, be it that it is gone.
bool KnowsPlan(const SideRecord& record);

// Puts a new term on top of the present one. It has a number of this side's own kind that is higher
// than any heard of. The other side does not have it yet. With a term that stands apart the new one
// follows both.
void PutTerm(SideRecord& record, const std::string& termId);

// The other side has the present term.
void MarkTold(SideRecord& record);

}  // namespace VrelDR::Protocol
