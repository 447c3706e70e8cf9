#include "protocol/driver.h"

#include <algorithm>

#include "protocol/driver_parts.h"

namespace VrelDR::Protocol {

namespace {

// One that is refused again and again has met what it was not made for, or another driver.
constexpr int kMostRefusals = 4;

std::size_t Place(Side side) {
  return static_cast<std::size_t>(side);
}

// The order of an operation before its commit: each line waits for the one above it.
Move Forward(const Driver& driver, const Sight& sight) {
  const Attempt& attempt = driver.attempt;
  const SideRecord& decides = sight.Of(attempt.works);
  const SideRecord& other = sight.Of(Other(attempt.works));
  const bool isPreparing = attempt.op == Op::kCreate || attempt.op == Op::kEdit;
  if (isPreparing && other.progress == Progress::kBegun) {
    return Ask(sight, other.side, RequestKind::kPrepareCopy, attempt);
  }
  if (attempt.op == Op::kSync && !HasHead(decides, attempt.snap_id)) {
    return Ask(sight, decides.side, RequestKind::kSnapshot, attempt);
  }
  if (attempt.op == Op::kSync && !HasHead(other, attempt.snap_id)) {
    return Ask(sight, other.side, RequestKind::kReceive, attempt);
  }
  if (MovesWork(attempt.op) && other.progress != Progress::kGivenUp) {
    return Ask(sight, other.side, RequestKind::kGiveUp, attempt);
  }
  if (attempt.op == Op::kSwitchover && !HasHead(decides, attempt.snap_id)) {
    return Ask(sight, decides.side, RequestKind::kReceive, attempt);
  }
  return Ask(sight, decides.side, RequestKind::kCommit, attempt);
}

Side WorksAfter(const Attempt& attempt, const PlanFacts& facts) {
  switch (attempt.op) {
    case Op::kCreate:
      return Side::kMain;
    case Op::kSwitchover:
    case Op::kFailover:
      return Other(facts.works);
    case Op::kRevert:
      return facts.source;
    case Op::kResolve:
      return attempt.works;
    default:
      return facts.works;
  }
}

// The attempt as it goes into the journals: higher than what either side has heard of.
void Aim(Attempt& attempt, const Sight& sight) {
  attempt.number = std::max(sight.mine.attempts_heard, sight.theirs.attempts_heard) + 1;
  attempt.base = sight.mine.facts.term.id;
  attempt.works = WorksAfter(attempt, sight.mine.facts);
  if (attempt.op == Op::kResolve) attempt.base_apart = sight.theirs.facts.term.id;
  const SideRecord& decides = sight.Of(attempt.works);
  if (attempt.op == Op::kFailover && attempt.snap_id.empty() && !decides.heads.empty()) {
    attempt.snap_id = decides.heads.back().snap_id;
  }
}

// The own attempt: begun at the main side first, so that of two the same one is refused on both.
Move RunAttempt(Driver& driver, const Sight& sight) {
  if (!driver.has_begun) {
    Aim(driver.attempt, sight);
    driver.has_begun = true;
  }
  const Attempt& attempt = driver.attempt;
  for (const Side side : kSides) {
    if (HasAttempt(sight.Of(side), attempt.id)) continue;
    if (HasVoided(sight.Of(side), attempt)) return End(Outcome::kTakenBack);
    return Ask(sight, side, RequestKind::kBegin, attempt);
  }
  return Forward(driver, sight);
}

// What has been seen once holds, whatever the records say later on: a sync leaves no term.
void LookForCommit(Driver& driver, const SideRecord& record) {
  const bool decides = driver.has_begun && record.side == driver.attempt.works;
  if (decides && HasCommitted(record, driver.attempt)) driver.has_seen_commit = true;
}

}  // namespace

Move NextMove(Driver& driver, const SideRecord& mine) {
  driver.seen[Place(driver.at)] = mine;
  LookForCommit(driver, mine);
  const std::optional<SideRecord>& other = driver.seen[Place(Other(driver.at))];
  if (!other.has_value()) {
    Move move;
    move.to = Other(driver.at);
    move.request.other = mine;
    return move;
  }
  const Sight sight = {mine, *other};
  if (driver.refusals > kMostRefusals) return End(Outcome::kRefused);
  // What is committed comes before a new term is heard of.
  const std::optional<Move> left = Settle(driver, sight);
  if (left.has_value()) return *left;
  const bool isUnderWay = driver.has_begun && !driver.goes_back && !driver.has_seen_commit;
  if (!isUnderWay) {
    const std::optional<Move> move = Agree(driver, sight);
    if (move.has_value()) return *move;
  }
  if (driver.has_seen_commit) return End(Outcome::kDone);
  if (driver.goes_back) return End(driver.has_begun ? Outcome::kTakenBack : Outcome::kRefused);
  return driver.attempt.op == Op::kNone ? TidyUp(sight) : RunAttempt(driver, sight);
}

void TakeAnswer(Driver& driver, const Move& move, Refusal refusal, const SideRecord& answer) {
  driver.seen[Place(move.to)] = answer;
  LookForCommit(driver, answer);
  if (refusal == Refusal::kNone) return;
  driver.goes_back = true;
  ++driver.refusals;
}

}  // namespace VrelDR::Protocol
