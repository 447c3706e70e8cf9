#include "moves.h"

#include <algorithm>

#include "names.h"
#include "protocol/decide.h"
#include "protocol/lineage.h"

namespace two_sides {

using VrelDR::Protocol::kSides;
using VrelDR::Protocol::Move;
using VrelDR::Protocol::NextMove;
using VrelDR::Protocol::Other;
using VrelDR::Protocol::Outcome;
using VrelDR::Protocol::RequestKind;
using VrelDR::Protocol::SideState;
using VrelDR::Protocol::StepKind;

namespace {

constexpr std::size_t kMostLate = 2;

// After whatever happened: both sides agree again, and from here on nothing is forced.
void LookAgain(World& world) {
  CheckState(world);
  const SideRecord& one = world.records[0];
  const SideRecord& other = world.records[1];
  Onlooker& onlooker = world.onlooker;
  if (!onlooker.was_forced || one.attempt.has_value() || other.attempt.has_value()) return;
  const bool isApart = one.apart == other.facts && other.apart == one.facts;
  if (isApart && !(one.is_writable && other.is_writable)) onlooker.may_both_write = false;
  if (one.facts.term.id != other.facts.term.id) return;
  for (const Side side : kSides) {
    const SideRecord& record = world.Of(side);
    if (record.state != SideState::kWorks || !record.is_writable) continue;
    if (world.Of(Other(side)).is_writable) continue;
    onlooker.was_forced = onlooker.may_both_write = false;
    onlooker.expected = world.CopyOf(side).bytes;
  }
}

// Whether a request that is on its way can never change anything again: numbers only go up, and
// what was heard of is not taken for new. With a mutated rule that is not so.
bool IsDead(const SideRecord& mine, const Request& request) {
  switch (request.kind) {
    case RequestKind::kTell: {
      const SideRecord& told = *request.other;
      const bool isOld = told.facts.term.id == mine.facts.term.id
                             ? mine.is_told
                             : VrelDR::Protocol::IsInLine(mine, told.facts.term.id);
      return isOld && VrelDR::Protocol::Decide(mine, request).steps.empty();
    }
    case RequestKind::kTake:
    case RequestKind::kForget:
    case RequestKind::kMend:
      return false;
    default:
      return mine.attempts_heard >= request.attempt.number &&
             !VrelDR::Protocol::HasAttempt(mine, request.attempt.id);
  }
}

void DropDead(World& world) {
  std::erase_if(world.late,
                [&](const Late& each) { return IsDead(world.Of(each.to), each.request); });
}

class Nexts {
 public:
  Nexts(const World& world, Mutation mutation, const Taker& take)
      : world_(world), mutation_(mutation), take_(take) {}

  void All() const {
    for (const Side side : kSides) {
      if (world_.DriverAt(side).empty()) {
        BeginDriver(side);
      } else {
        MoveDriver(side);
      }
      MendAt(side);
      WriteAt(side);
      ForceAt(side);
      LoseAt(side);
    }
    for (std::size_t i = 0; i < world_.late.size(); ++i) Deliver(i);
  }

 private:
  void Emit(const std::string& what, World&& after) const {
    LookAgain(after);
    if (mutation_ == Mutation::kNone) DropDead(after);
    take_(what, std::move(after));
  }

  // What an operator would not begin as far as his own node knows is not begun.
  bool MakesSense(const SideRecord& record, Op op) const {
    const auto& facts = record.facts;
    const bool isKnown = record.state != SideState::kNone && record.state != SideState::kGone;
    const bool isNormal = isKnown && facts.source == facts.works;
    switch (op) {
      case Op::kCreate:
        return record.state == SideState::kNone && record.terms_heard == 0;
      case Op::kRevert:
      case Op::kReprotect:
        return isKnown && !isNormal;
      case Op::kResolve:
        return record.apart.has_value();
      case Op::kDelete:
        return isKnown;
      default:
        return isNormal;
    }
  }

  bool HasLeftovers() const {
    const SideRecord& one = world_.records[0];
    const SideRecord& other = world_.records[1];
    if (one.facts.term.id != other.facts.term.id) return true;
    return std::any_of(world_.records.begin(), world_.records.end(), [](const SideRecord& each) {
      return each.attempt.has_value() || !each.is_told || each.state == SideState::kHeld ||
             each.state == SideState::kGone;
    });
  }

  bool IsInScope(Op op) const {
    const std::vector<Op>& all = world_.scope.operations;
    return all.empty() || std::find(all.begin(), all.end(), op) != all.end();
  }

  void BeginDriver(Side side) const {
    if (world_.scope.is_one_at_a_time && !world_.DriverAt(Other(side)).empty()) return;
    if (HasLeftovers()) {
      World after = world_;
      after.DriverAt(side).emplace_back();
      after.DriverAt(side).back().at = side;
      Emit(Named(side) + " begins to settle", std::move(after));
    }
    if (world_.left.operations == 0) return;
    for (int op = static_cast<int>(Op::kCreate); op <= static_cast<int>(Op::kResolve); ++op) {
      if (!IsInScope(static_cast<Op>(op))) continue;
      if (!MakesSense(world_.Of(side), static_cast<Op>(op))) continue;
      BeginOperation(side, static_cast<Op>(op), Side::kMain);
      if (static_cast<Op>(op) == Op::kResolve) {
        BeginOperation(side, static_cast<Op>(op), Side::kDR);
      }
    }
  }

  void BeginOperation(Side side, Op op, Side keep) const;
  void MoveDriver(Side side) const;

  // The request reaches the side: done, or interrupted by a crash of that node at every step. The
  // driver gets the answer if it still waits for it; `before` is the world without the request.
  void Reach(const World& before, const std::string& what, Side to, const Request& request,
             const Driver* driver, const Move* move) const {
    const std::size_t steps = DecideAt(before, to, request, mutation_).steps.size();
    {
      World after = before;
      const Refusal refusal = Handle(after, to, request, Fate(), mutation_);
      Answer(after, refusal, driver, move);
      const std::string end = refusal == Refusal::kNone ? "" : " (refused)";
      Emit(what + end, std::move(after));
    }
    for (std::size_t i = 1; i < steps; ++i)
      WriteBetween(before, what, to, request, driver, move, i);
    if (before.left.faults == 0) return;
    const Decision decision = DecideAt(before, to, request, mutation_);
    for (std::size_t i = 0; i < steps; ++i) {
      if (i > 0) Interrupt(before, what, to, request, i, false);
      const StepKind kind = decision.steps[i].kind;
      if (kind == StepKind::kReceiveBytes || kind == StepKind::kRollTo) {
        Interrupt(before, what, to, request, i, true);
      }
    }
  }

  void Interrupt(const World& before, const std::string& what, Side to, const Request& request,
                 std::size_t steps, bool isTorn) const {
    World after = before;
    --after.left.faults;
    Fate fate;
    fate.steps = steps;
    fate.is_torn = isTorn;
    (void)Handle(after, to, request, fate, mutation_);
    after.DriverAt(to).clear();
    const std::string where = isTorn ? " in the middle of step " : " before step ";
    Emit(what + ", " + Named(to) + " crashes" + where + std::to_string(steps + 1),
         std::move(after));
  }

  void WriteBetween(const World& before, const std::string& what, Side to, const Request& request,
                    const Driver* driver, const Move* move, std::size_t step) const {
    if (before.left.writes == 0) return;
    World halfway = before;
    Fate fate;
    fate.steps = step;
    (void)Handle(halfway, to, request, fate, mutation_);
    if (!halfway.Of(to).is_writable) return;
    World after = before;
    --after.left.writes;
    fate.steps = Fate::kAll;
    fate.write_before = step;
    const Refusal refusal = Handle(after, to, request, fate, mutation_);
    Answer(after, refusal, driver, move);
    Emit(what + ", somebody writes before step " + std::to_string(step + 1), std::move(after));
  }

  void Answer(World& after, Refusal refusal, const Driver* driver, const Move* move) const {
    if (driver == nullptr) return;
    Driver next = *driver;
    TakeAnswer(next, *move, refusal, after.Of(move->to));
    MutateSeen(mutation_, next);
    // It looks at its own side's record anew before each move.
    next.seen[static_cast<std::size_t>(next.at)].reset();
    after.DriverAt(next.at).assign(1, next);
  }

  void MendAt(Side side) const {
    Request request;
    request.kind = RequestKind::kMend;
    if (DecideAt(world_, side, request, mutation_).steps.empty()) return;
    Reach(world_, Named(side) + " mends", side, request, nullptr, nullptr);
  }

  void WriteAt(Side side) const {
    const SideRecord& record = world_.Of(side);
    if (world_.left.writes == 0 || !record.is_writable) return;
    if (record.state != SideState::kWorks && record.state != SideState::kNone) return;
    World after = world_;
    --after.left.writes;
    Write(after, side);
    Emit("somebody writes on " + Named(side), std::move(after));
  }

  void ForceAt(Side side) const {
    if (world_.left.forces == 0) return;
    for (const RequestKind kind : {RequestKind::kForceWork, RequestKind::kForceDelete}) {
      World before = world_;
      --before.left.forces;
      ++before.made_ids;
      Request request;
      request.kind = kind;
      request.attempt.id = "f" + std::to_string(before.made_ids);
      const SideRecord& record = before.Of(side);
      if (!record.heads.empty()) request.attempt.snap_id = record.heads.back().snap_id;
      if (DecideAt(before, side, request, mutation_).refusal != Refusal::kNone) continue;
      Reach(before, Named(side) + ": " + Named(kind), side, request, nullptr, nullptr);
    }
  }

  // The node comes back from a bare system: its copy is there, and nothing that was known of it. It
  // is not asked anything that was sent to it before.
  void LoseAt(Side side) const {
    const SideRecord& record = world_.Of(side);
    if (world_.left.losses == 0 || record.state == SideState::kNone) return;
    if (!world_.late.empty() || !world_.DriverAt(side).empty()) return;
    World after = world_;
    --after.left.losses;
    SideRecord blank;
    blank.side = side;
    blank.is_writable = record.is_writable;
    blank.target_id = record.target_id;
    after.Of(side) = blank;
    after.onlooker.was_lost = true;
    after.onlooker.was_gone[static_cast<std::size_t>(side)] = false;
    Emit(Named(side) + " loses its records", std::move(after));
  }

  void Deliver(std::size_t place) const {
    World before = world_;
    const Late late = before.late[place];
    before.late.erase(before.late.begin() + static_cast<std::ptrdiff_t>(place));
    Reach(before, Named(late.request.kind) + " comes late to " + Named(late.to), late.to,
          late.request, nullptr, nullptr);
  }

  const World& world_;
  Mutation mutation_;
  const Taker& take_;
};

void Nexts::BeginOperation(Side side, Op op, Side keep) const {
  World after = world_;
  --after.left.operations;
  after.DriverAt(side).assign(1, NewDriver(after, side, op, keep));
  Emit(Named(side) + " begins " + Named(op), std::move(after));
}

void AddLate(World& world, Side to, const Request& request) {
  Late late;
  late.to = to;
  late.request = request;
  world.late.push_back(late);
}

void Nexts::MoveDriver(Side side) const {
  World before = world_;
  Driver driver = before.DriverAt(side).front();
  const Move move = NextMove(driver, before.Of(side));
  before.DriverAt(side).clear();
  const std::string who = Named(side) + kOf + Named(driver.attempt.op);
  if (move.outcome != Outcome::kAsk) {
    Emit(who + kEnds + Named(move.outcome), std::move(before));
    return;
  }
  const std::string what = who + " asks " + Named(move.to) + " to " + Named(move.request.kind) +
                           " " + move.request.attempt.id;
  Reach(before, what, move.to, move.request, &driver, &move);
  if (before.left.faults == 0) return;
  World after = before;
  --after.left.faults;
  Emit(who + " ends before it asks " + Named(move.to) + " to " + Named(move.request.kind),
       World(after));
  if (move.to == side) return;
  if (after.late.size() < kMostLate) {
    World late = after;
    AddLate(late, move.to, move.request);
    Emit(what + ", which is late", std::move(late));
  }
  if (DecideAt(after, move.to, move.request, mutation_).steps.empty()) return;
  if (after.late.size() < kMostLate) {
    World doubled = after;
    const Refusal refusal = Handle(doubled, move.to, move.request, Fate(), mutation_);
    Answer(doubled, refusal, &driver, &move);
    AddLate(doubled, move.to, move.request);
    Emit(what + ", once more later", std::move(doubled));
  }
  (void)Handle(after, move.to, move.request, Fate(), mutation_);
  Emit(what + ", and the answer is lost", std::move(after));
}

}  // namespace

Driver NewDriver(World& world, Side at, Op op, Side keep) {
  Driver driver;
  driver.at = at;
  if (op == Op::kNone) return driver;
  const std::string name = std::to_string(++world.made_ids);
  driver.attempt.op = op;
  driver.attempt.id = "x" + name;
  driver.attempt.works = keep;
  if (op == Op::kSync || op == Op::kSwitchover) driver.attempt.snap_id = "s" + name;
  if (op == Op::kCreate || op == Op::kEdit) driver.attempt.target_id = "t" + name;
  return driver;
}

void ForEachNext(const World& world, Mutation mutation, const Taker& take) {
  Nexts(world, mutation, take).All();
}

Outcome RunAlone(World& world, Side at, Op op, Side keep, Mutation mutation) {
  constexpr int kMostMoves = 60;
  Driver driver = NewDriver(world, at, op, keep);
  for (int i = 0; i < kMostMoves; ++i) {
    const Move move = NextMove(driver, world.Of(at));
    if (move.outcome != Outcome::kAsk) return move.outcome;
    const Refusal refusal = Handle(world, move.to, move.request, Fate(), mutation);
    TakeAnswer(driver, move, refusal, world.Of(move.to));
    MutateSeen(mutation, driver);
    LookAgain(world);
  }
  world.Break("an operation asks without an end");
  return Outcome::kAsk;
}

void SettleAll(World& world, Mutation mutation) {
  constexpr int kMostRounds = 6;
  world.drivers = {};
  world.late.clear();
  for (int i = 0; i < kMostRounds; ++i) {
    const std::string before = KeyOf(world, false);
    for (const Side side : kSides) {
      Request request;
      request.kind = RequestKind::kMend;
      (void)Handle(world, side, request, Fate(), mutation);
    }
    for (const Side side : kSides) {
      (void)RunAlone(world, side, Op::kNone, side, mutation);
    }
    if (KeyOf(world, false) == before) return;
  }
  world.Break("settling has no end");
}

}  // namespace two_sides
