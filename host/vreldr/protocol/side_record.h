#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VrelDR::Protocol {

// The two sides of a plan. Kept on disk: never change a value.
enum class Side : std::uint8_t {
  kMain = 0,
  kDR = 1,
};

constexpr std::array<Side, 2> kSides = {Side::kMain, Side::kDR};

constexpr Side Other(Side side) {
  return side == Side::kMain ? Side::kDR : Side::kMain;
}

// How one side stands. Kept on disk: never change a value.
enum class SideState : std::uint8_t {
  kNone = 0,      // no plan is known here
  kWorks = 1,     // its copy is in use, and writable unless it has given it up for an attempt
  kReplica = 2,   // unwritable, receives
  kHeld = 3,      // unwritable: the other node knows of terms that are missing here
  kFenced = 4,    // unwritable, as the other side works by a later term; nothing is received
  kDiverged = 5,  // unwritable: both sides were changed, and this one has the lower term
  kGone = 6,      // the plan was deleted; the record is its tombstone
};

// What an attempt does. Kept on disk: never change a value.
enum class Op : std::uint8_t {
  kNone = 0,
  kCreate = 1,
  kSync = 2,
  kEdit = 3,  // another DR copy in the place of the one that does not work
  kDelete = 4,
  kSwitchover = 5,
  kFailover = 6,  // orderly, to a snapshot
  kRevert = 7,
  kReprotect = 8,
  kResolve = 9,  // one of two diverged sides is kept
};

// One committed change of a plan. The main side makes even numbers alone, the DR side odd ones, so
// that two sides never make the same one.
struct Term {
  std::uint64_t number = 0;  // 0: there is none
  std::string id;            // random; that of the attempt that made it, if one did
  std::string follows;       // the identifier of the one before, empty for the first

  bool operator==(const Term&) const = default;
};

// What a term says, the same wherever it is known.
struct PlanFacts {
  Term term;
  Side source = Side::kMain;  // where data comes from, by the direction of the plan
  Side works = Side::kMain;   // another one than the source after a failover
  bool is_deleted = false;

  bool operator==(const PlanFacts&) const = default;
};

// A snapshot that the plan's lock keeps on a side.
struct Head {
  std::string snap_id;
  std::uint64_t time = 0;

  bool operator==(const Head&) const = default;
};

// An operation on both sides, as the journals of both have it.
struct Attempt {
  std::string id;            // random, never used again
  std::uint64_t number = 0;  // higher than of any that a side has heard of: a late request is known
  Op op = Op::kNone;
  Side works = Side::kMain;  // the side that works afterwards: its commit decides
  std::string base;          // the identifier of the term that it goes out from
  std::string base_apart;    // kResolve: of the other one, which does not follow
  std::string snap_id;       // taken by kSync and kSwitchover; the one that kFailover goes to
  std::string target_id;     // the DR copy of kCreate, the new one of kEdit

  bool operator==(const Attempt&) const = default;
};

// How far a side is in its attempt. Kept on disk: never change a value.
enum class Progress : std::uint8_t {
  kBegun = 0,
  kPrepared = 1,   // the new copy is there
  kGivenUp = 2,    // unwritable for this attempt, and the last snapshot is taken
  kCommitted = 3,  // this is the side that works: from here it can only be finished
};

// What one side keeps of a plan, in one row that is committed as a whole.
struct SideRecord {
  Side side = Side::kMain;
  SideState state = SideState::kNone;
  PlanFacts facts;
  // The present term and those before it, oldest first, back to the last that the other side is
  // known to have: by them each side tells whether the other's term follows its own.
  std::vector<Term> line;
  bool is_writable = false;  // the copy, as its engine says
  std::string target_id;
  std::optional<Attempt> attempt;
  Progress progress = Progress::kBegun;  // in `attempt`
  std::uint64_t attempts_heard = 0;      // the highest number; outlives the plan
  std::uint64_t terms_heard = 0;         // the highest number of either side; outlives the plan
  bool is_told = true;                   // the other side has the present term
  std::optional<PlanFacts> apart;        // what the other side says when neither follows
  std::vector<Head> heads;               // oldest first
  std::optional<Head> arriving;          // its bytes may be here in part
  std::string starts_at;                 // the copy is to hold this snapshot before it is writable
  std::uint64_t newest_time = 0;         // of the snapshots of both sides, as far as heard

  bool operator==(const SideRecord&) const = default;
};

bool HasHead(const SideRecord& record, const std::string& snapId);

// Whether the journal has the attempt.
bool HasAttempt(const SideRecord& record, const std::string& attemptId);

// Whether the side has decided that the attempt is to be finished.
bool HasCommitted(const SideRecord& record, const Attempt& attempt);

// Whether the side can never commit the attempt: it has heard of it, does not have it, and has not
// committed it.
bool HasVoided(const SideRecord& record, const Attempt& attempt);

// Whether the operation makes another copy work than before, so that the other side has to give up
// its part first.
bool MovesWork(Op op);

// Whether the copy holds something whole, or will once it starts at its snapshot.
bool HasWholeCopy(const SideRecord& record);

// Whether the side is unwritable for its attempt.
bool HasGivenUp(const SideRecord& record);

}  // namespace VrelDR::Protocol
