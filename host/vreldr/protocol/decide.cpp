#include "protocol/decide.h"

#include "protocol/decision_parts.h"

namespace VrelDR::Protocol {

namespace {

// The memory of how far numbers have gone outlives the plan: a late request never makes it again.
Decision Forget(const SideRecord& mine) {
  if (mine.state == SideState::kNone) return {};
  if (mine.state != SideState::kGone || !mine.is_told || mine.attempt.has_value()) {
    return Refuse(Refusal::kNotAllowed);
  }
  SideRecord blank;
  blank.side = mine.side;
  blank.is_writable = mine.is_writable;
  blank.target_id = mine.target_id;
  blank.attempts_heard = mine.attempts_heard;
  blank.terms_heard = mine.terms_heard;
  blank.newest_time = mine.newest_time;
  Decision decision;
  AddCommit(decision, blank);
  return decision;
}

Decision Mend(const SideRecord& mine) {
  Decision decision;
  if (mine.state == SideState::kWorks && !mine.is_writable && !HasGivenUp(mine)) {
    AddPromotion(decision, mine);
  }
  const bool isIdle = mine.state == SideState::kReplica || mine.state == SideState::kHeld ||
                      mine.state == SideState::kFenced || mine.state == SideState::kDiverged;
  if (mine.is_writable && (isIdle || HasGivenUp(mine))) {
    AddStep(decision, StepKind::kMakeUnwritable);
  }
  return decision;
}

// A request of an attempt that the journal has to have.
Decision DecideOfAttempt(const SideRecord& mine, const Request& request) {
  if (!HasAttempt(mine, request.attempt.id)) return Refuse(Refusal::kStale);
  const Attempt& attempt = *mine.attempt;
  switch (request.kind) {
    case RequestKind::kPrepareCopy:
      return PrepareCopy(mine, attempt);
    case RequestKind::kSnapshot:
      return TakeSnapshot(mine, attempt);
    case RequestKind::kGiveUp:
      return GiveUp(mine, attempt);
    case RequestKind::kReceive:
      return Receive(mine, request);
    case RequestKind::kCommit:
      return Commit(mine, request);
    case RequestKind::kFinish:
      return Finish(mine, request);
    case RequestKind::kClose:
      return Close(mine, request);
    case RequestKind::kTakeBack:
      return TakeBack(mine, request);
    default:
      return Refuse(Refusal::kNotAllowed);
  }
}

}  // namespace

Decision Refuse(Refusal refusal) {
  Decision decision;
  decision.refusal = refusal;
  return decision;
}

void AddStep(Decision& decision, StepKind kind, const std::string& id) {
  Step step;
  step.kind = kind;
  step.id = id;
  decision.steps.push_back(std::move(step));
}

void AddCommit(Decision& decision, const SideRecord& record) {
  Step step;
  step.kind = StepKind::kCommit;
  step.record = record;
  decision.steps.push_back(std::move(step));
}

void AddPromotion(Decision& decision, SideRecord record) {
  if (record.is_writable) return;
  if (!record.starts_at.empty()) {
    AddStep(decision, StepKind::kRollTo, record.starts_at);
    // Once it may be written it is never rolled again.
    record.starts_at.clear();
    AddCommit(decision, record);
  }
  AddStep(decision, StepKind::kMakeWritable);
}

void AddUnwritable(Decision& decision, SideRecord& record) {
  if (!record.is_writable) return;
  AddStep(decision, StepKind::kMakeUnwritable);
  record.is_writable = false;
}

void EndAttempt(SideRecord& record) {
  record.attempt.reset();
  record.progress = Progress::kBegun;
}

Decision Decide(const SideRecord& mine, const Request& request) {
  switch (request.kind) {
    case RequestKind::kTell:
      return request.other.has_value() ? Meet(mine, *request.other) : Refuse(Refusal::kNoEvidence);
    case RequestKind::kTake:
      return request.other.has_value() ? Take(mine, *request.other) : Refuse(Refusal::kNoEvidence);
    case RequestKind::kForget:
      return Forget(mine);
    case RequestKind::kMend:
      return Mend(mine);
    case RequestKind::kForceWork:
      return ForceWork(mine, request.attempt);
    case RequestKind::kForceDelete:
      return ForceDelete(mine, request.attempt);
    case RequestKind::kBegin:
      return Begin(mine, request);
    case RequestKind::kVoid:
      return Void(mine, request.attempt);
    default:
      return DecideOfAttempt(mine, request);
  }
}

}  // namespace VrelDR::Protocol
