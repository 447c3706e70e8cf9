#include "explorer.h"

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <unordered_set>

#include "moves.h"
#include "protocol/lineage.h"

namespace two_sides {

using VrelDR::Protocol::kSides;
using VrelDR::Protocol::Other;
using VrelDR::Protocol::Outcome;
using VrelDR::Protocol::RequestKind;
using VrelDR::Protocol::SideState;

namespace {

// 128 bits of a text: two texts of one are not to be expected.
struct Print {
  std::uint64_t one = 0;
  std::uint64_t two = 0;

  bool operator==(const Print&) const = default;
};

struct PrintHash {
  std::size_t operator()(const Print& print) const { return print.one; }
};

std::uint64_t Mixed(std::uint64_t value) {
  value ^= value >> 32U;
  value *= 0xd6e8feb86659fd93U;
  value ^= value >> 32U;
  value *= 0xd6e8feb86659fd93U;
  return value ^ (value >> 32U);
}

Print PrintOf(const std::string& text) {
  Print print = {text.size(), ~text.size()};
  for (std::size_t i = 0; i < text.size(); i += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    const std::size_t count = std::min(sizeof(word), text.size() - i);
    text.copy(reinterpret_cast<char*>(&word), count, i);
    print.one = Mixed(print.one ^ word);
    print.two = Mixed(print.two + word * 0x9e3779b97f4a7c15U) + word;
  }
  return print;
}

// How a state was reached: from which one, by the how manieth of the things that could happen
// there.
struct Origin {
  std::uint32_t from = 0;
  std::uint32_t which = 0;
};

struct Waiting {
  std::uint32_t number = 0;
  World world;
};

enum class End { kGood, kDiverged, kHeld, kBad };

bool IsNone(const SideRecord& record) {
  return record.state == SideState::kNone && !record.attempt.has_value();
}

// How both sides stand when nothing goes wrong any more.
End Judge(const World& world) {
  const SideRecord& one = world.records[0];
  const SideRecord& other = world.records[1];
  if (one.attempt.has_value() || other.attempt.has_value()) {
    const bool isHeld = one.state == SideState::kHeld || other.state == SideState::kHeld;
    return isHeld ? End::kHeld : End::kBad;
  }
  if (IsNone(one) && IsNone(other)) return End::kGood;
  if (one.state == SideState::kHeld || other.state == SideState::kHeld) return End::kHeld;
  if (one.apart == other.facts && other.apart == one.facts) {
    const SideRecord& lower = one.facts.term.number < other.facts.term.number ? one : other;
    return lower.state == SideState::kDiverged && !lower.is_writable ? End::kDiverged : End::kBad;
  }
  // The other side has lost what stood apart.
  if (one.state == SideState::kDiverged || other.state == SideState::kDiverged) return End::kHeld;
  if (one.facts != other.facts || !one.is_told || !other.is_told) return End::kBad;
  const SideRecord& works = one.facts.works == Side::kMain ? one : other;
  const SideRecord& idle = one.facts.works == Side::kMain ? other : one;
  const SideState expected =
      one.facts.source == one.facts.works ? SideState::kReplica : SideState::kFenced;
  const bool isGood = works.state == SideState::kWorks && works.is_writable &&
                      idle.state == expected && !idle.is_writable;
  return isGood ? End::kGood : End::kBad;
}

// An operator who orders one side to work, or the plan to be deleted, finds an order that helps.
bool CanBeForced(const World& world, Mutation mutation) {
  for (const RequestKind kind : {RequestKind::kForceWork, RequestKind::kForceDelete}) {
    for (const Side side : kSides) {
      World later = world;
      Request request;
      request.kind = kind;
      request.attempt.id = "last";
      const SideRecord& record = later.Of(side);
      if (!record.heads.empty()) request.attempt.snap_id = record.heads.back().snap_id;
      const Refusal refusal = Handle(later, side, request, Fate(), mutation);
      if (refusal != Refusal::kNone) continue;
      SettleAll(later, mutation);
      if (later.broken.empty() && Judge(later) == End::kGood) return true;
    }
  }
  return false;
}

// Whichever side the operator keeps, unless there is nothing whole on it.
void CheckResolve(World& world, Side keep, Mutation mutation) {
  if (!VrelDR::Protocol::HasWholeCopy(world.Of(keep))) return;
  World later = world;
  const Outcome outcome = RunAlone(later, Side::kMain, Op::kResolve, keep, mutation);
  const bool isKept = later.Of(keep).state == SideState::kWorks;
  if (outcome != Outcome::kDone || Judge(later) != End::kGood || !isKept) {
    later.Break("sides that stand apart cannot be brought together");
  }
  if (!later.broken.empty()) world = later;
}

// What is done then, orderly, is done.
void GoOn(World& world, End end, Mutation mutation) {
  const SideRecord& main = world.Of(Side::kMain);
  if (end == End::kHeld) {
    if (!CanBeForced(world, mutation)) world.Break("a held side cannot be helped");
  } else if (end == End::kDiverged) {
    for (const Side keep : kSides) CheckResolve(world, keep, mutation);
  } else if (end == End::kGood && main.state != SideState::kNone) {
    const bool isNormal = main.facts.source == main.facts.works;
    if (!isNormal) {
      const Outcome outcome = RunAlone(world, Side::kDR, Op::kReprotect, Side::kMain, mutation);
      if (outcome != Outcome::kDone) world.Break("a settled plan cannot be reprotected");
    }
    const Outcome outcome = RunAlone(world, Side::kDR, Op::kSync, Side::kMain, mutation);
    if (outcome != Outcome::kDone || Judge(world) != End::kGood) {
      world.Break("a settled plan cannot be synced");
    }
  }
}

std::string Sequel(End end) {
  if (end == End::kDiverged) return "the sides are resolved";
  return end == End::kHeld ? "a side is forced" : "the plan is reprotected and synced";
}

class Exploration {
 public:
  Exploration(Mutation mutation, std::uint64_t most) : mutation_(mutation), most_(most) {}

  Found Run(const World& begin) {
    begin_ = begin;
    Meet(World(begin), {});
    while (!waiting_.empty() && found_.broken.empty() && origins_.size() < most_) {
      const Waiting next = std::move(waiting_.front());
      waiting_.pop_front();
      std::uint32_t which = 0;
      ForEachNext(next.world, mutation_, [&](const std::string& what, World&& after) {
        ++found_.transitions;
        LookForEnd(what);
        Meet(std::move(after), {next.number, which++});
      });
    }
    found_.is_whole = waiting_.empty() && found_.broken.empty();
    found_.states = origins_.size();
    return found_;
  }

 private:
  void Meet(World&& world, const Origin& origin) {
    if (!found_.broken.empty()) return;
    if (!met_.insert(PrintOf(KeyOf(world, true))).second) return;
    const auto number = static_cast<std::uint32_t>(origins_.size());
    origins_.push_back(origin);
    if (world.broken.empty()) LetSettle(world);
    if (!world.broken.empty()) {
      found_.broken = world.broken;
      Tell(number);
      if (!after_.empty()) found_.trace.push_back(after_);
      return;
    }
    waiting_.push_back({number, std::move(world)});
  }

  // From every state both nodes come to a good end by themselves, or say why not.
  void LetSettle(World& world) {
    if (!settled_.insert(PrintOf(KeyOf(world, false))).second) return;
    ++found_.settled;
    LetTalk(world);
    if (!world.broken.empty()) return;
    World later = world;
    SettleAll(later, mutation_);
    const End end = Judge(later);
    if (end == End::kDiverged) ++found_.diverged;
    if (end == End::kHeld) ++found_.held;
    const Onlooker& onlooker = world.onlooker;
    if (end == End::kBad) later.Break("the sides never come to a good end");
    if (end == End::kHeld && !onlooker.was_lost) later.Break("a side is held without need");
    if (end == End::kDiverged && !onlooker.was_forced) {
      later.Break("the sides stand apart, and nobody forced anything");
    }
    after_ = "nothing more goes wrong, and both nodes settle\n      -> " + Describe(later);
    if (later.broken.empty()) GoOn(later, end, mutation_);
    if (!later.broken.empty()) {
      after_ += "\n  then " + Sequel(end) + "\n      -> " + Describe(later);
    }
    world.broken = later.broken;
    if (world.broken.empty()) after_.clear();
  }

  void LookForEnd(const std::string& what) {
    const std::size_t end = what.find(kEnds);
    if (end == std::string::npos) return;
    const std::size_t begin = what.find(kOf) + std::char_traits<char>::length(kOf);
    found_.ends.insert(what.substr(begin, end - begin) + " " +
                       what.substr(end + std::char_traits<char>::length(kEnds)));
  }

  // When the two sides have heard of each other once, only one of them works.
  void LetTalk(World& world) {
    for (const Side side : kSides) {
      World later = world;
      later.drivers = {};
      (void)RunAlone(later, side, Op::kNone, side, mutation_);
      const SideRecord& one = later.records[0];
      const SideRecord& other = later.records[1];
      const bool isPlan = one.state != SideState::kNone && other.state != SideState::kNone &&
                          !(one.facts.is_deleted && other.facts.is_deleted);
      if (isPlan && one.is_writable && other.is_writable) {
        world.Break("both sides have talked, and both can be written");
      }
    }
  }

  // Goes the way to the state once more.
  void Tell(std::uint32_t number) {
    std::vector<std::uint32_t> way;
    for (std::uint32_t each = number; each != 0; each = origins_[each].from) {
      way.push_back(origins_[each].which);
    }
    World world = begin_;
    found_.trace.push_back(Describe(world));
    for (auto each = way.rbegin(); each != way.rend(); ++each) {
      std::uint32_t which = 0;
      World next;
      ForEachNext(world, mutation_, [&](const std::string& what, World&& after) {
        if (which++ != *each) return;
        found_.trace.push_back(what + "\n      -> " + Describe(after));
        next = std::move(after);
      });
      world = std::move(next);
    }
  }

  Mutation mutation_;
  std::uint64_t most_;
  World begin_;
  Found found_;
  std::string after_;
  std::vector<Origin> origins_;
  std::deque<Waiting> waiting_;
  std::unordered_set<Print, PrintHash> met_;
  std::unordered_set<Print, PrintHash> settled_;
};

}  // namespace

Found Explore(const World& begin, Mutation mutation, std::uint64_t most) {
  return Exploration(mutation, most).Run(begin);
}

}  // namespace two_sides
