// What a side does when it hears how the other one stands.
#include <algorithm>

#include "protocol/decision_parts.h"
#include "protocol/lineage.h"

namespace VrelDR::Protocol {

namespace {

void Hear(SideRecord& record, const SideRecord& theirs) {
  record.terms_heard = std::max({record.terms_heard, theirs.terms_heard, theirs.facts.term.number});
  record.newest_time = std::max(record.newest_time, theirs.newest_time);
}

// The commit alone, if there is anything to be kept.
Decision Keep(const SideRecord& mine, const SideRecord& record) {
  Decision decision;
  if (!(mine == record)) AddCommit(decision, record);
  return decision;
}

SideState Idle(const PlanFacts& facts) {
  return facts.source == facts.works ? SideState::kReplica : SideState::kFenced;
}

// Nobody writes until it is known what the bytes here are worth.
Decision Hold(const SideRecord& mine, const SideRecord& theirs) {
  if (theirs.state == SideState::kHeld) return Refuse(Refusal::kUncertain);
  if (theirs.facts.is_deleted) return Adopt(mine, theirs);
  Decision decision;
  SideRecord record = mine;
  Hear(record, theirs);
  record.attempts_heard = std::max(record.attempts_heard, theirs.attempts_heard);
  record.state = SideState::kHeld;
  record.facts = theirs.facts;
  EndAttempt(record);
  record.heads.clear();
  record.arriving.reset();
  record.starts_at.clear();
  MarkTold(record);
  AddUnwritable(decision, record);
  AddCommit(decision, record);
  return decision;
}

// The plan is here no more, or not yet.
Decision MeetKnowing(const SideRecord& mine, const SideRecord& theirs) {
  SideRecord record = mine;
  Hear(record, theirs);
  // Of a plan that is being made here its attempt tells.
  if (theirs.state == SideState::kGone || mine.attempt.has_value()) return Keep(mine, record);
  // Numbers that were heard: it was deleted with the knowledge of both sides.
  if (mine.terms_heard != 0) return Refuse(Refusal::kUncertain);
  return Hold(mine, theirs);
}

Decision MeetBlank(const SideRecord& mine, const SideRecord& theirs) {
  SideRecord record = mine;
  const bool hasHeard = theirs.terms_heard >= mine.facts.term.number;
  if (mine.state == SideState::kGone && hasHeard) MarkTold(record);
  return Keep(mine, record);
}

Decision MeetApart(const SideRecord& mine, const SideRecord& theirs) {
  const bool isLower = mine.facts.term.number < theirs.facts.term.number;
  if (mine.facts.is_deleted && theirs.facts.is_deleted) {
    return isLower ? Adopt(mine, theirs) : Decision();
  }
  Decision decision;
  SideRecord record = mine;
  Hear(record, theirs);
  record.apart = theirs.facts;
  // What was given up is had back by taking its attempt back alone, and resolving is an attempt
  // too. One that is committed cannot be finished any more.
  const bool isOpen = mine.progress != Progress::kCommitted && mine.attempt.has_value() &&
                      (mine.attempt->op == Op::kResolve || HasGivenUp(mine));
  if (!isOpen) EndAttempt(record);
  if (isLower) {
    AddUnwritable(decision, record);
    record.state = SideState::kDiverged;
  }
  if (!(mine == record)) AddCommit(decision, record);
  return decision;
}

Decision MeetLater(const SideRecord& mine, const SideRecord& theirs) {
  // What was given up for an attempt is had back before, by taking the attempt back.
  const bool isOwnEnd = theirs.facts.is_deleted && theirs.facts.works == mine.side;
  if (isOwnEnd && HasGivenUp(mine)) return Refuse(Refusal::kNotAllowed);
  return theirs.state == SideState::kHeld ? Refuse(Refusal::kUncertain) : Adopt(mine, theirs);
}

}  // namespace

Decision Adopt(const SideRecord& mine, const SideRecord& theirs) {
  Decision decision;
  SideRecord record = mine;
  Hear(record, theirs);
  const Attempt attempt = mine.attempt.value_or(Attempt());
  const bool isFinish =
      mine.attempt.has_value() && attempt.works != mine.side && HasCommitted(theirs, attempt);
  record.facts = theirs.facts;
  EndAttempt(record);
  record.apart.reset();
  MarkTold(record);
  if (isFinish && !attempt.target_id.empty()) {
    record.target_id = attempt.target_id;
    record.heads.clear();
    record.arriving.reset();
  }
  if (record.facts.works != record.side) AddUnwritable(decision, record);
  if (record.facts.is_deleted) {
    record.state = SideState::kGone;
    record.heads.clear();
    record.arriving.reset();
  } else if (record.facts.works == record.side) {
    // Who works makes the terms that say so: this is not to be explained.
    AddUnwritable(decision, record);
    record.state = SideState::kHeld;
  } else {
    record.state = Idle(record.facts);
    const bool hasSentAll = isFinish && attempt.op == Op::kSwitchover;
    // A copy that never came to start at its snapshot has nothing of its own.
    const bool hasOwnBytes = mine.state != SideState::kReplica && mine.state != SideState::kNone &&
                             mine.starts_at.empty();
    if (record.state == SideState::kReplica && hasOwnBytes && !hasSentAll) {
      AddStep(decision, StepKind::kKeepBytes, record.facts.term.id);
    }
    if (record.state == SideState::kReplica) record.starts_at.clear();
  }
  AddCommit(decision, record);
  return decision;
}

Decision Meet(const SideRecord& mine, const SideRecord& theirs) {
  SideRecord record = mine;
  Hear(record, theirs);
  switch (Compare(mine, theirs)) {
    case Relation::kMineLost:
      return MeetKnowing(mine, theirs);
    case Relation::kTheirsLost:
      return MeetBlank(mine, theirs);
    case Relation::kOlder:
      return MeetLater(mine, theirs);
    case Relation::kMineLess:
      return Hold(mine, theirs);
    case Relation::kApart:
      return MeetApart(mine, theirs);
    case Relation::kSame:
      if (!mine.is_told) MarkTold(record);
      // The other side has lost what stood apart.
      if (mine.state != SideState::kDiverged) record.apart.reset();
      return Keep(mine, record);
    default:
      return Keep(mine, record);
  }
}

Decision Take(const SideRecord& mine, const SideRecord& theirs) {
  if (mine.state != SideState::kHeld) return Refuse(Refusal::kNotAllowed);
  // Whoever gave up its part for an attempt cannot tell what had been committed here.
  const bool isCertain = theirs.state != SideState::kHeld && !theirs.attempt.has_value() &&
                         Compare(mine, theirs) == Relation::kSame;
  if (!isCertain || mine.facts.works == mine.side) return Refuse(Refusal::kUncertain);
  Decision decision;
  SideRecord record = mine;
  Hear(record, theirs);
  record.state = Idle(record.facts);
  AddStep(decision, StepKind::kKeepBytes, record.facts.term.id);
  AddCommit(decision, record);
  return decision;
}

}  // namespace VrelDR::Protocol
