// The commit of an attempt at the side that works afterwards, and its end on both.
#include "protocol/decision_parts.h"
#include "protocol/lineage.h"

namespace VrelDR::Protocol {

namespace {

// Whether the other side, and this one, have done what comes before the commit.
bool HasEvidence(const SideRecord& mine, const Attempt& attempt, const SideRecord& other) {
  if (!HasAttempt(other, attempt.id)) return false;
  switch (attempt.op) {
    case Op::kCreate:
    case Op::kEdit:
      return other.progress == Progress::kPrepared;
    case Op::kSync:
      return HasHead(mine, attempt.snap_id) && HasHead(other, attempt.snap_id);
    case Op::kDelete:
      return true;
    case Op::kReprotect:
      return !other.is_writable;
    default:
      break;
  }
  const bool hasBytes = (attempt.op != Op::kSwitchover && attempt.op != Op::kFailover) ||
                        HasHead(mine, attempt.snap_id);
  return hasBytes && other.progress == Progress::kGivenUp && !other.is_writable;
}

// Only the newest snapshot that both sides have stays locked.
void KeepOnly(SideRecord& record, const std::string& snapId) {
  std::erase_if(record.heads, [&](const Head& each) { return each.snap_id != snapId; });
}

// What the attempt makes of the record of the side that works.
void Turn(SideRecord& record, const Attempt& attempt) {
  if (attempt.op == Op::kSync) {
    KeepOnly(record, attempt.snap_id);
    return;
  }
  PutTerm(record, attempt.id);
  record.facts.works = attempt.works;
  record.state = SideState::kWorks;
  switch (attempt.op) {
    case Op::kCreate:
      record.facts.source = Side::kMain;
      break;
    case Op::kEdit:
      record.heads.clear();
      break;
    case Op::kDelete:
      record.facts.is_deleted = true;
      record.state = SideState::kGone;
      record.heads.clear();
      break;
    case Op::kSwitchover:
      KeepOnly(record, attempt.snap_id);
      break;
    default:
      break;
  }
  const bool isStill = attempt.op == Op::kFailover || attempt.op == Op::kDelete;
  if (!isStill) record.facts.source = attempt.works;
  if (attempt.op == Op::kResolve) record.facts.is_deleted = false;
  if (attempt.op == Op::kSwitchover || attempt.op == Op::kFailover) {
    record.starts_at = attempt.snap_id;
  }
  if (!record.starts_at.empty()) record.arriving.reset();
}

}  // namespace

Decision Commit(const SideRecord& mine, const Request& request) {
  const Attempt& attempt = *mine.attempt;
  if (mine.side != attempt.works) return Refuse(Refusal::kNotAllowed);
  Decision decision;
  SideRecord record = mine;
  if (mine.progress != Progress::kCommitted) {
    if (!request.other.has_value() || !HasEvidence(mine, attempt, *request.other)) {
      return Refuse(Refusal::kNoEvidence);
    }
    Turn(record, attempt);
    record.progress = Progress::kCommitted;
    AddCommit(decision, record);
  }
  if (record.state == SideState::kWorks) AddPromotion(decision, record);
  return decision;
}

Decision Finish(const SideRecord& mine, const Request& request) {
  const Attempt& attempt = *mine.attempt;
  if (mine.side == attempt.works) return Refuse(Refusal::kNotAllowed);
  if (!request.other.has_value() || !HasCommitted(*request.other, attempt)) {
    return Refuse(Refusal::kNoEvidence);
  }
  if (attempt.op != Op::kSync) return Adopt(mine, *request.other);
  Decision decision;
  SideRecord record = mine;
  KeepOnly(record, attempt.snap_id);
  EndAttempt(record);
  AddCommit(decision, record);
  return decision;
}

Decision Close(const SideRecord& mine, const Request& request) {
  if (mine.progress != Progress::kCommitted) return Refuse(Refusal::kNotAllowed);
  const SideRecord other = request.other.value_or(SideRecord());
  const bool isFinished = !HasAttempt(other, request.attempt.id) &&
                          (other.facts.term.id == mine.facts.term.id ||
                           (mine.state == SideState::kGone && !KnowsPlan(other) &&
                            other.terms_heard >= mine.facts.term.number));
  if (!isFinished) return Refuse(Refusal::kNoEvidence);
  Decision decision;
  SideRecord record = mine;
  EndAttempt(record);
  MarkTold(record);
  AddCommit(decision, record);
  return decision;
}

}  // namespace VrelDR::Protocol
