#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mutation.h"
#include "protocol/driver.h"

namespace two_sides {

using VrelDR::Protocol::Decision;
using VrelDR::Protocol::Driver;
using VrelDR::Protocol::Op;
using VrelDR::Protocol::Refusal;
using VrelDR::Protocol::Request;
using VrelDR::Protocol::Side;
using VrelDR::Protocol::SideRecord;
using VrelDR::Protocol::Step;

// Bytes are the set of the writes that are in them, one bit for each.
using Bytes = std::uint32_t;

struct Image {
  std::string id;
  Bytes bytes = 0;
};

// Null when there is none.
const Image* Find(const std::vector<Image>& images, const std::string& id);

// What an engine keeps of a side's copy. Whether it is writable stands in the side's record.
struct Copy {
  std::string target_id;
  Bytes bytes = 0;
  bool is_torn = false;       // something between two snapshots
  std::vector<Image> images;  // its snapshots; what no lock of the plan keeps goes at once
  Bytes kept = 0;             // in snapshots that nobody removes, and in copies that were replaced
  std::string spare_id;       // a new copy that is not used yet
};

// A request that was sent and comes late, if ever.
struct Late {
  Side to = Side::kMain;
  Request request;
};

// How often what may happen may still happen.
struct Budget {
  int operations = 0;
  int faults = 0;  // a message lost, late or doubled; a crash of a node or of a driver
  int forces = 0;
  int losses = 0;  // a node's records are lost
  int writes = 0;
};

// What is looked at: everything, unless it is said to be less.
struct Scope {
  std::vector<Op> operations;     // that are begun; none: all of them
  bool is_one_at_a_time = false;  // no driver begins while another one runs
};

// A term that was made, whatever became of the records.
struct Made {
  std::string id;
  std::string follows;
  std::string follows_apart;
};

// What an onlooker knows who sees both sides, for the invariants.
struct Onlooker {
  bool was_forced = false;      // since both sides last agreed
  bool may_both_write = false;  // was forced, and they have not yet said that they stand apart
  bool was_lost = false;
  bool was_synced = false;  // since the copies were last made or forced
  Bytes acknowledged = 0;
  Bytes expected = 0;        // what a copy that works has, unless it was forced
  std::vector<Image> taken;  // the bytes of each snapshot when it was taken
  std::vector<Made> made;
  std::array<bool, 2> was_gone = {};
  std::uint64_t newest_time = 0;
};

// Two nodes with a side of one plan each, and what is on its way between them.
struct World {
  std::array<SideRecord, 2> records;
  std::array<Copy, 2> copies;
  std::array<std::vector<Driver>, 2> drivers;  // one at most on each node
  std::vector<Late> late;
  Budget left;
  Scope scope;
  int made_ids = 0;
  Onlooker onlooker;
  std::string broken;  // the first invariant that does not hold

  SideRecord& Of(Side side) { return records[static_cast<std::size_t>(side)]; }
  const SideRecord& Of(Side side) const { return records[static_cast<std::size_t>(side)]; }
  Copy& CopyOf(Side side) { return copies[static_cast<std::size_t>(side)]; }
  const Copy& CopyOf(Side side) const { return copies[static_cast<std::size_t>(side)]; }
  std::vector<Driver>& DriverAt(Side side) { return drivers[static_cast<std::size_t>(side)]; }
  const std::vector<Driver>& DriverAt(Side side) const {
    return drivers[static_cast<std::size_t>(side)];
  }
  void Break(const std::string& what) {
    if (broken.empty()) broken = what;
  }
};

// What becomes of a request at the side that handles it.
struct Fate {
  static constexpr std::size_t kAll = SIZE_MAX;
  std::size_t steps = kAll;         // a crash after so many
  bool is_torn = false;             // it comes in the middle of the next one
  std::size_t write_before = kAll;  // somebody writes just before this step
};

// Somebody writes the side's copy and is told that it is written.
void Write(World& world, Side side);

// What the side is going to do, as the mutated rules say.
Decision DecideAt(const World& world, Side side, const Request& request, Mutation mutation);

// Does it. Refused, too, when bytes that were to come are not there any more.
Refusal Handle(World& world, Side side, const Request& request, const Fate& fate,
               Mutation mutation);

// Looks at what has to hold in every state.
void CheckState(World& world);

// A text that is the same for worlds from which the same can happen. Without `isWhole` only of what
// lasts.
std::string KeyOf(const World& world, bool isWhole);

// One line about how the two sides stand.
std::string Describe(const World& world);

}  // namespace two_sides
