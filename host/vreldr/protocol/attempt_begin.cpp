// What a side puts into its journal, and what it refuses.
#include <algorithm>

#include "protocol/decision_parts.h"
#include "protocol/lineage.h"

namespace VrelDR::Protocol {

namespace {

bool IsUncertain(const SideRecord& record) {
  return record.state == SideState::kHeld || record.state == SideState::kDiverged ||
         record.apart.has_value();
}

// Whether the operation has a sense as the plan stands, which is the same on both sides.
bool IsAllowed(const SideRecord& mine, const Attempt& attempt) {
  const PlanFacts& facts = mine.facts;
  const bool isNormal = facts.source == facts.works;
  switch (attempt.op) {
    case Op::kSync:
    case Op::kEdit:
      return isNormal && attempt.works == facts.works;
    case Op::kSwitchover:
      return isNormal && attempt.works != facts.works;
    case Op::kFailover:
      return isNormal && attempt.works != facts.works &&
             (mine.side != attempt.works || HasHead(mine, attempt.snap_id));
    case Op::kRevert:
      return !isNormal && attempt.works == facts.source;
    case Op::kReprotect:
      return !isNormal && attempt.works == facts.works;
    case Op::kDelete:
      return attempt.works == facts.works;
    default:
      return false;
  }
}

Refusal CanBegin(const SideRecord& mine, const Attempt& attempt) {
  if (mine.attempt.has_value()) return Refusal::kBusy;
  if (attempt.number <= mine.attempts_heard) return Refusal::kStale;
  if (attempt.op == Op::kCreate) {
    const bool isNew = mine.state == SideState::kNone && mine.terms_heard == 0;
    return isNew && attempt.works == Side::kMain ? Refusal::kNone : Refusal::kNotAllowed;
  }
  const std::string& term = mine.facts.term.id;
  if (attempt.op == Op::kResolve) {
    if (!mine.apart.has_value()) return Refusal::kNotAllowed;
    if (attempt.works == mine.side && !HasWholeCopy(mine)) return Refusal::kNotAllowed;
    const std::string& apart = mine.apart->term.id;
    const bool isThis = (term == attempt.base && apart == attempt.base_apart) ||
                        (term == attempt.base_apart && apart == attempt.base);
    return isThis ? Refusal::kNone : Refusal::kTermDiffers;
  }
  if (!KnowsPlan(mine) || mine.state == SideState::kGone) return Refusal::kNotAllowed;
  if (IsUncertain(mine)) return Refusal::kUncertain;
  if (term != attempt.base) return Refusal::kTermDiffers;
  return IsAllowed(mine, attempt) ? Refusal::kNone : Refusal::kNotAllowed;
}

}  // namespace

Decision Begin(const SideRecord& mine, const Request& request) {
  if (HasAttempt(mine, request.attempt.id)) return {};
  const Refusal refusal = CanBegin(mine, request.attempt);
  if (refusal != Refusal::kNone) return Refuse(refusal);
  Decision decision;
  SideRecord record = mine;
  record.attempt = request.attempt;
  record.progress = Progress::kBegun;
  record.attempts_heard = request.attempt.number;
  if (request.other.has_value()) {
    record.newest_time = std::max(record.newest_time, request.other->newest_time);
  }
  AddCommit(decision, record);
  return decision;
}

}  // namespace VrelDR::Protocol
