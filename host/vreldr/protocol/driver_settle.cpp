// How a driver brings both sides to agree, whatever was left before.
#include "protocol/driver_parts.h"
#include "protocol/lineage.h"

namespace VrelDR::Protocol {

namespace {

// What is committed at the side that works is brought to its end.
std::optional<Move> GoForth(const Sight& sight, const Attempt& attempt) {
  const SideRecord& decides = sight.Of(attempt.works);
  const SideRecord& follows = sight.Of(Other(attempt.works));
  if (HasAttempt(follows, attempt.id)) {
    return Ask(sight, follows.side, RequestKind::kFinish, attempt);
  }
  if (!HasAttempt(decides, attempt.id)) return std::nullopt;
  const Relation relation = Compare(decides, follows);
  const bool isFollowed = relation == Relation::kSame ||
                          (decides.state == SideState::kGone && relation == Relation::kTheirsLost);
  if (!isFollowed) return std::nullopt;
  return Ask(sight, decides.side, RequestKind::kClose, attempt);
}

// Whether the side that follows has to take in how the other one stands before anything else is
// done about the attempt.
bool HasToAgreeFirst(const Attempt& attempt, const SideRecord& follows, const SideRecord& decides) {
  const bool isOwnEnd = decides.facts.is_deleted && decides.facts.works == follows.side;
  switch (Compare(follows, decides)) {
    case Relation::kOlder:
      return !isOwnEnd;
    case Relation::kTheirsLost:
    case Relation::kMineLess:
    case Relation::kTheirsLess:
      return true;
    case Relation::kApart:
      return attempt.op != Op::kResolve;
    default:
      return false;
  }
}

// What is not committed is voided at the side that could, and only then taken back at the other
// one.
std::optional<Move> GoBack(const Sight& sight, const Attempt& attempt) {
  const SideRecord& decides = sight.Of(attempt.works);
  const SideRecord& follows = sight.Of(Other(attempt.works));
  if (HasToAgreeFirst(attempt, follows, decides)) return std::nullopt;
  if (decides.state == SideState::kHeld) return End(Outcome::kHeld);
  if (!HasVoided(decides, attempt)) {
    return Ask(sight, decides.side, RequestKind::kVoid, attempt);
  }
  if (!HasAttempt(follows, attempt.id)) return std::nullopt;
  return Ask(sight, follows.side, RequestKind::kTakeBack, attempt);
}

bool IsLeftover(const Driver& driver, const SideRecord& record) {
  if (!record.attempt.has_value()) return false;
  return driver.goes_back || driver.has_seen_commit || record.attempt->id != driver.attempt.id;
}

// One side knows the plan and the other one does not: it is to hear of the deletion, or is held.
std::optional<Move> AgreeWithBlank(const Sight& sight, Side knowing) {
  const SideRecord& known = sight.Of(knowing);
  const SideRecord& blank = sight.Of(Other(knowing));
  if (known.state == SideState::kHeld) return End(Outcome::kHeld);
  if (known.state != SideState::kGone) return Ask(sight, blank.side, RequestKind::kTell);
  if (blank.terms_heard < known.facts.term.number) {
    return Ask(sight, blank.side, RequestKind::kTell);
  }
  if (known.is_told) return std::nullopt;
  return Ask(sight, knowing, RequestKind::kTell);
}

}  // namespace

Move Ask(const Sight& sight, Side to, RequestKind kind, const Attempt& attempt) {
  Move move;
  move.to = to;
  move.request.kind = kind;
  move.request.attempt = attempt;
  move.request.other = sight.Of(Other(to));
  return move;
}

Move End(Outcome outcome) {
  Move move;
  move.outcome = outcome;
  return move;
}

std::optional<Move> Settle(const Driver& driver, const Sight& sight) {
  for (const Side side : kSides) {
    if (!IsLeftover(driver, sight.Of(side))) continue;
    const Attempt& attempt = *sight.Of(side).attempt;
    const bool isCommitted = HasCommitted(sight.Of(attempt.works), attempt);
    std::optional<Move> move = isCommitted ? GoForth(sight, attempt) : GoBack(sight, attempt);
    if (move.has_value()) return move;
  }
  return std::nullopt;
}

std::optional<Move> Agree(const Driver& driver, const Sight& sight) {
  const bool isResolving = driver.attempt.op == Op::kResolve;
  const Side mine = sight.mine.side;
  const Side theirs = sight.theirs.side;
  switch (Compare(sight.mine, sight.theirs)) {
    case Relation::kMineLost:
      return AgreeWithBlank(sight, theirs);
    case Relation::kTheirsLost:
      return AgreeWithBlank(sight, mine);
    case Relation::kOlder:
    case Relation::kMineLess:
      return Ask(sight, mine, RequestKind::kTell);
    case Relation::kNewer:
    case Relation::kTheirsLess:
      return Ask(sight, theirs, RequestKind::kTell);
    case Relation::kApart:
      if (sight.mine.apart != sight.theirs.facts) return Ask(sight, mine, RequestKind::kTell);
      if (sight.theirs.apart != sight.mine.facts) return Ask(sight, theirs, RequestKind::kTell);
      if (isResolving && !driver.goes_back) return std::nullopt;
      return End(Outcome::kDiverged);
    default:
      return std::nullopt;
  }
}

Move TidyUp(const Sight& sight) {
  for (const Side side : kSides) {
    const SideRecord& record = sight.Of(side);
    const SideRecord& other = sight.Of(Other(side));
    if (!record.is_told) {
      const bool isForgotten = record.state == SideState::kGone && !KnowsPlan(other);
      if (KnowsPlan(other) || isForgotten) return Ask(sight, side, RequestKind::kTell);
    }
    if (record.state == SideState::kHeld) {
      if (record.facts.works == side || other.state == SideState::kHeld) return End(Outcome::kHeld);
      return Ask(sight, side, RequestKind::kTake);
    }
  }
  for (const Side side : kSides) {
    const SideRecord& record = sight.Of(side);
    if (record.state == SideState::kGone) return Ask(sight, side, RequestKind::kForget);
  }
  return End(Outcome::kDone);
}

}  // namespace VrelDR::Protocol
