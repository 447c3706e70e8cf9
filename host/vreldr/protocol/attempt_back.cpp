// How an attempt that was not committed is taken back.
#include <algorithm>

#include "protocol/decision_parts.h"
#include "protocol/lineage.h"

namespace VrelDR::Protocol {

namespace {

// Whether the side that would have committed has said that it never will, and nobody works by a
// later term.
bool IsTakenBack(const SideRecord& mine, const Attempt& attempt, const SideRecord& other) {
  if (!HasVoided(other, attempt) || other.state == SideState::kHeld) return false;
  const Relation relation = Compare(mine, other);
  const bool isOwnEnd = other.facts.is_deleted && other.facts.works == mine.side;
  if (relation == Relation::kApart) return attempt.op == Op::kResolve;
  return relation == Relation::kSame || relation == Relation::kNewer ||
         relation == Relation::kBothNone || (relation == Relation::kOlder && isOwnEnd);
}

}  // namespace

Decision Void(const SideRecord& mine, const Attempt& attempt) {
  if (mine.side != attempt.works) return Refuse(Refusal::kNotAllowed);
  if (HasCommitted(mine, attempt)) return Refuse(Refusal::kCommitted);
  const bool isLost = !KnowsPlan(mine) && attempt.op != Op::kCreate && mine.terms_heard == 0;
  if (mine.state == SideState::kHeld || isLost) return Refuse(Refusal::kUncertain);
  if (HasVoided(mine, attempt)) return {};
  Decision decision;
  SideRecord record = mine;
  if (HasAttempt(mine, attempt.id)) EndAttempt(record);
  record.attempts_heard = std::max(record.attempts_heard, attempt.number);
  AddCommit(decision, record);
  return decision;
}

Decision TakeBack(const SideRecord& mine, const Request& request) {
  const Attempt& attempt = *mine.attempt;
  if (mine.side == attempt.works) return Refuse(Refusal::kNotAllowed);
  if (!request.other.has_value() || !IsTakenBack(mine, attempt, *request.other)) {
    return Refuse(Refusal::kNoEvidence);
  }
  Decision decision;
  SideRecord record = mine;
  EndAttempt(record);
  if (!attempt.target_id.empty()) AddStep(decision, StepKind::kDropCopy, attempt.target_id);
  AddCommit(decision, record);
  if (record.state == SideState::kWorks) AddPromotion(decision, record);
  return decision;
}

}  // namespace VrelDR::Protocol
