// What has to hold in every state.
#include <algorithm>

#include "world.h"

namespace two_sides {

using VrelDR::Protocol::HasGivenUp;
using VrelDR::Protocol::SideState;

namespace {

void CheckTerms(World& world) {
  std::vector<VrelDR::Protocol::PlanFacts> facts;
  std::vector<VrelDR::Protocol::Term> terms;
  for (const SideRecord& each : world.records) {
    if (each.facts.term.number != 0) facts.push_back(each.facts);
    if (each.apart.has_value()) facts.push_back(*each.apart);
    terms.insert(terms.end(), each.line.begin(), each.line.end());
  }
  for (const auto& one : facts) {
    for (const auto& other : facts) {
      if (one.term.number == other.term.number && !(one == other)) {
        world.Break("two terms of one number say different things");
      }
    }
  }
  for (const auto& one : terms) {
    for (const auto& other : terms) {
      if (one.number == other.number && one.id != other.id) {
        world.Break("two terms have one number");
      }
    }
  }
}

void CheckSide(World& world, Side side) {
  const SideRecord& record = world.Of(side);
  const Copy& copy = world.CopyOf(side);
  const Onlooker& onlooker = world.onlooker;
  const bool isIdle = record.state == SideState::kReplica || record.state == SideState::kHeld ||
                      record.state == SideState::kFenced || record.state == SideState::kDiverged;
  if (isIdle && record.is_writable) world.Break("a side that does not work is writable");
  if (HasGivenUp(record) && record.is_writable) {
    world.Break("a side is writable that has given up its part");
  }
  if (record.is_writable && copy.is_torn && !onlooker.was_lost)
    world.Break("half a snapshot is writable");
  const bool works = record.is_writable && record.state == SideState::kWorks;
  if (works && !onlooker.was_forced && (onlooker.expected & ~copy.bytes) != 0) {
    world.Break("an acknowledged write is missing in the copy that works");
  }
  for (const auto& head : record.heads) {
    const Image* const here = Find(copy.images, head.snap_id);
    const Image* const taken = Find(onlooker.taken, head.snap_id);
    if (here == nullptr || taken == nullptr || here->bytes != taken->bytes) {
      world.Break("a snapshot is recorded that is not there as it was taken");
    }
  }
}

bool ReplicatesNow(const World& world) {
  const SideState one = world.records[0].state;
  const SideState other = world.records[1].state;
  return (one == SideState::kWorks && other == SideState::kReplica) ||
         (one == SideState::kReplica && other == SideState::kWorks);
}

}  // namespace

void CheckState(World& world) {
  const SideRecord& one = world.records[0];
  const SideRecord& other = world.records[1];
  CheckSide(world, Side::kMain);
  CheckSide(world, Side::kDR);
  CheckTerms(world);
  const Onlooker& onlooker = world.onlooker;
  if (one.is_writable && other.is_writable && !onlooker.may_both_write && !onlooker.was_lost) {
    world.Break("both copies are writable, and nobody forced that");
  }
  Bytes found = 0;
  for (const Copy& each : world.copies) {
    // Whether a copy is whole whose records are lost, only somebody who looks at it can tell.
    found |= (each.is_torn && !onlooker.was_lost ? 0 : each.bytes) | each.kept;
    for (const Image& image : each.images) found |= image.bytes;
  }
  if ((onlooker.acknowledged & ~found) != 0) {
    world.Break("an acknowledged write is nowhere any more");
  }
  if (onlooker.was_synced && !onlooker.was_forced && !onlooker.was_lost && ReplicatesNow(world)) {
    const bool hasCommon = std::any_of(one.heads.begin(), one.heads.end(), [&](const auto& each) {
      return VrelDR::Protocol::HasHead(other, each.snap_id);
    });
    if (!hasCommon) world.Break("no snapshot is on both sides any more");
  }
}

}  // namespace two_sides
