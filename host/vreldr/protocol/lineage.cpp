#include "protocol/lineage.h"

#include <algorithm>

namespace VrelDR::Protocol {

bool IsInLine(const SideRecord& record, const std::string& termId) {
  return std::any_of(record.line.begin(), record.line.end(),
                     [&](const Term& each) { return each.id == termId; });
}

bool KnowsPlan(const SideRecord& record) {
  return record.state != SideState::kNone;
}

Relation Compare(const SideRecord& mine, const SideRecord& theirs) {
  if (!KnowsPlan(mine)) return KnowsPlan(theirs) ? Relation::kMineLost : Relation::kBothNone;
  if (!KnowsPlan(theirs)) return Relation::kTheirsLost;
  if (mine.facts.term.id == theirs.facts.term.id) return Relation::kSame;
  if (IsInLine(theirs, mine.facts.term.id)) return Relation::kOlder;
  if (IsInLine(mine, theirs.facts.term.id)) return Relation::kNewer;
  // A line goes back to a term that the other side had.
  if (mine.facts.term.number < theirs.line.front().number) return Relation::kMineLess;
  if (theirs.facts.term.number < mine.line.front().number) return Relation::kTheirsLess;
  return Relation::kApart;
}

void PutTerm(SideRecord& record, const std::string& termId) {
  constexpr std::uint64_t kKinds = 2;
  const std::uint64_t kind = record.side == Side::kMain ? 0 : 1;
  if (record.apart.has_value()) record.line.push_back(record.apart->term);
  record.apart.reset();
  Term term;
  term.number = std::max(record.facts.term.number, record.terms_heard) + 1;
  if (term.number % kKinds != kind) ++term.number;
  term.id = termId;
  term.follows = record.facts.term.id;
  record.facts.term = term;
  record.terms_heard = term.number;
  record.line.push_back(term);
  record.is_told = false;
}

void MarkTold(SideRecord& record) {
  record.is_told = true;
  record.line.assign(1, record.facts.term);
}

}  // namespace VrelDR::Protocol
