#include "mutation.h"

#include <algorithm>

#include "protocol/lineage.h"

namespace two_sides {

using VrelDR::Protocol::Decision;
using VrelDR::Protocol::Driver;
using VrelDR::Protocol::HasAttempt;
using VrelDR::Protocol::HasHead;
using VrelDR::Protocol::Op;
using VrelDR::Protocol::Other;
using VrelDR::Protocol::Progress;
using VrelDR::Protocol::Refusal;
using VrelDR::Protocol::Request;
using VrelDR::Protocol::RequestKind;
using VrelDR::Protocol::Side;
using VrelDR::Protocol::SideRecord;
using VrelDR::Protocol::SideState;
using VrelDR::Protocol::Step;
using VrelDR::Protocol::StepKind;

namespace {

using Steps = std::vector<Step>;

Steps::iterator Find(Steps& steps, StepKind kind) {
  return std::find_if(steps.begin(), steps.end(),
                      [&](const Step& each) { return each.kind == kind; });
}

void Drop(Steps& steps, StepKind kind) {
  std::erase_if(steps, [&](const Step& each) { return each.kind == kind; });
}

// The first step of one kind comes after the first one of the other.
void PutAfter(Steps& steps, StepKind moved, StepKind other) {
  const auto from = Find(steps, moved);
  const auto to = Find(steps, other);
  if (from == steps.end() || to == steps.end() || to < from) return;
  std::rotate(from, from + 1, to + 1);
}

SideRecord* LastCommit(Steps& steps) {
  const auto found = std::find_if(steps.rbegin(), steps.rend(),
                                  [](const Step& each) { return each.kind == StepKind::kCommit; });
  return found == steps.rend() ? nullptr : &found->record;
}

bool IsOfAttempt(RequestKind kind) {
  return kind >= RequestKind::kPrepareCopy && kind <= RequestKind::kTakeBack &&
         kind != RequestKind::kVoid;
}

void Blank(SideRecord& record, bool isWithNumbers) {
  SideRecord blank;
  blank.side = record.side;
  blank.is_writable = record.is_writable;
  blank.target_id = record.target_id;
  if (!isWithNumbers) {
    blank.attempts_heard = record.attempts_heard;
    blank.terms_heard = record.terms_heard;
  }
  record = blank;
}

// The held record is believed as it comes, and the copy left as it is.
void DoNotHold(Steps& steps) {
  SideRecord* const record = LastCommit(steps);
  if (record == nullptr || record->state != SideState::kHeld) return;
  Drop(steps, StepKind::kMakeUnwritable);
  const bool works = record->facts.works == record->side;
  LastCommit(steps)->state = works ? SideState::kWorks : SideState::kReplica;
}

}  // namespace

const std::vector<MutationName>& Mutations() {
  static const std::vector<MutationName> all = {
      {Mutation::kPromoteBeforeGivenUp, "PromoteBeforeGivenUp"},
      {Mutation::kSayUnwritableOnly, "SayUnwritableOnly"},
      {Mutation::kRecordBeforeUnwritable, "RecordBeforeUnwritable"},
      {Mutation::kWritableBeforeCommit, "WritableBeforeCommit"},
      {Mutation::kAcceptAnyAttempt, "AcceptAnyAttempt"},
      {Mutation::kAcceptOldAttempt, "AcceptOldAttempt"},
      {Mutation::kTakeBackWithoutVoid, "TakeBackWithoutVoid"},
      {Mutation::kCloseBeforeFinish, "CloseBeforeFinish"},
      {Mutation::kForgetTombstone, "ForgetTombstone"},
      {Mutation::kForgetNumbers, "ForgetNumbers"},
      {Mutation::kNumbersOfOneKind, "NumbersOfOneKind"},
      {Mutation::kAdoptWhateverIsHigher, "AdoptWhateverIsHigher"},
      {Mutation::kDoNotHold, "DoNotHold"},
      {Mutation::kDoNotKeepBytes, "DoNotKeepBytes"},
      {Mutation::kSnapshotBeforeQuiet, "SnapshotBeforeQuiet"},
      {Mutation::kCommitWithoutBytes, "CommitWithoutBytes"},
      {Mutation::kRecordBeforeBytes, "RecordBeforeBytes"},
      {Mutation::kReleaseBeforeArrival, "ReleaseBeforeArrival"},
      {Mutation::kDoNotRoll, "DoNotRoll"},
      {Mutation::kTimesAreNotTold, "TimesAreNotTold"},
      {Mutation::kTellEndsResolving, "TellEndsResolving"},
  };
  return all;
}

void MutateSeen(Mutation mutation, Driver& driver) {
  const VrelDR::Protocol::Attempt& own = driver.attempt;
  auto& decider = driver.seen[static_cast<std::size_t>(own.works)];
  auto& follower = driver.seen[static_cast<std::size_t>(Other(own.works))];
  if (mutation == Mutation::kCommitWithoutBytes && own.op == Op::kSwitchover &&
      decider.has_value() && HasAttempt(*decider, own.id)) {
    decider->heads.push_back({own.snap_id, decider->newest_time});
  }
  if (mutation == Mutation::kCloseBeforeFinish && driver.has_seen_commit && decider.has_value() &&
      follower.has_value()) {
    follower->attempt.reset();
    follower->facts = decider->facts;
  }
  for (auto& each : driver.seen) {
    if (!each.has_value() || !each->attempt.has_value()) continue;
    const VrelDR::Protocol::Attempt attempt = *each->attempt;
    const bool decides = each->side == attempt.works;
    if (mutation == Mutation::kPromoteBeforeGivenUp && !decides && MovesWork(attempt.op)) {
      each->progress = Progress::kGivenUp;
      each->is_writable = false;
    }
    if (mutation == Mutation::kTakeBackWithoutVoid && decides && driver.attempt.id != attempt.id &&
        each->progress != Progress::kCommitted) {
      each->attempt.reset();
    }
  }
}

void MutateRequest(Mutation mutation, SideRecord& mine, Request& request) {
  switch (mutation) {
    case Mutation::kAcceptAnyAttempt:
      if (mine.attempt.has_value() && IsOfAttempt(request.kind)) {
        request.attempt.id = mine.attempt->id;
        if (request.other.has_value() && request.other->attempt.has_value()) {
          request.other->attempt->id = mine.attempt->id;
        }
      }
      break;
    case Mutation::kAcceptOldAttempt:
      if (request.kind == RequestKind::kBegin) mine.attempts_heard = 0;
      break;
    case Mutation::kCloseBeforeFinish:
      if (request.kind == RequestKind::kClose && request.other.has_value()) {
        request.other->attempt.reset();
        request.other->facts.term = mine.facts.term;
      }
      break;
    case Mutation::kAdoptWhateverIsHigher:
      if (request.other.has_value() && !mine.facts.term.id.empty() &&
          request.other->facts.term.number > mine.facts.term.number) {
        request.other->line.push_back(mine.facts.term);
      }
      break;
    case Mutation::kCommitWithoutBytes:
      if (request.kind == RequestKind::kCommit && mine.attempt.has_value() &&
          !HasHead(mine, mine.attempt->snap_id)) {
        mine.heads.push_back({mine.attempt->snap_id, mine.newest_time});
      }
      break;
    case Mutation::kTimesAreNotTold:
      if (request.other.has_value()) {
        request.other->newest_time = 0;
        for (auto& each : request.other->heads) each.time = 0;
      }
      break;
    default:
      break;
  }
}

void MutateDecision(Mutation mutation, const SideRecord& mine, const Request& request,
                    Decision& decision) {
  Steps& steps = decision.steps;
  SideRecord* const last = LastCommit(steps);
  switch (mutation) {
    case Mutation::kSayUnwritableOnly:
      if (request.kind == RequestKind::kGiveUp) Drop(steps, StepKind::kMakeUnwritable);
      break;
    case Mutation::kRecordBeforeUnwritable:
      PutAfter(steps, StepKind::kMakeUnwritable, StepKind::kCommit);
      break;
    case Mutation::kWritableBeforeCommit: {
      const auto found = Find(steps, StepKind::kMakeWritable);
      if (request.kind == RequestKind::kCommit && found != steps.end()) {
        std::rotate(steps.begin(), found, found + 1);
      }
      break;
    }
    case Mutation::kForgetTombstone:
      if (last != nullptr && last->state == SideState::kGone) Blank(*last, true);
      break;
    case Mutation::kForgetNumbers:
      if (request.kind == RequestKind::kForget && last != nullptr) Blank(*last, true);
      break;
    case Mutation::kNumbersOfOneKind:
      if (last != nullptr && last->facts.term.follows == mine.facts.term.id &&
          last->facts.term.id == request.attempt.id) {
        for (Step& each : steps) {
          if (each.kind != StepKind::kCommit) continue;
          each.record.facts.term.number = mine.facts.term.number + 1;
          each.record.terms_heard = mine.facts.term.number + 1;
          each.record.line.back().number = mine.facts.term.number + 1;
        }
      }
      break;
    case Mutation::kDoNotHold:
      DoNotHold(steps);
      break;
    case Mutation::kDoNotKeepBytes:
      Drop(steps, StepKind::kKeepBytes);
      break;
    case Mutation::kSnapshotBeforeQuiet:
      if (request.kind == RequestKind::kGiveUp) {
        PutAfter(steps, StepKind::kMakeUnwritable, StepKind::kTakeSnapshot);
      }
      break;
    case Mutation::kRecordBeforeBytes:
      if (request.kind == RequestKind::kReceive && steps.size() > 1) {
        std::swap(steps[steps.size() - 2], steps.back());
      }
      break;
    case Mutation::kReleaseBeforeArrival:
      if (request.kind == RequestKind::kSnapshot && last != nullptr && last->heads.size() > 1) {
        last->heads.erase(last->heads.begin(), last->heads.end() - 1);
      }
      break;
    case Mutation::kDoNotRoll:
      Drop(steps, StepKind::kRollTo);
      break;
    case Mutation::kTellEndsResolving:
      if (request.kind == RequestKind::kTell && mine.apart.has_value() &&
          mine.attempt.has_value() && mine.attempt->op == Op::kResolve) {
        Step step;
        step.record = last == nullptr ? mine : *last;
        step.record.attempt.reset();
        step.record.progress = Progress::kBegun;
        steps.push_back(step);
      }
      break;
    default:
      break;
  }
}

}  // namespace two_sides
