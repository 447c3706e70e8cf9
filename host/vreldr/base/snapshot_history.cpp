#include "vreldr/snapshot_history.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace VrelDR::SnapshotHistory {

using Operation::Snapshot;

namespace {

SnapshotList::const_iterator Place(const SnapshotList& snapshots, const std::string& snapId) {
  return std::find_if(snapshots.begin(), snapshots.end(),
                      [&](const Snapshot& each) { return each.snap_id == snapId; });
}

// Identifiers to look up, which their lists own.
using Ids = std::unordered_set<std::string_view>;

Ids IdsOf(const SnapshotList& snapshots) {
  Ids ids;
  ids.reserve(snapshots.size());
  for (const Snapshot& each : snapshots) ids.insert(each.snap_id);
  return ids;
}

}  // namespace

const Snapshot* Find(const SnapshotList& snapshots, const std::string& snapId) {
  const auto place = Place(snapshots, snapId);
  return place == snapshots.end() ? nullptr : &*place;
}

std::string NewestCommon(const SnapshotList& one, const SnapshotList& other,
                         const std::string& before) {
  const Ids others = IdsOf(other);
  const auto found =
      std::find_if(std::make_reverse_iterator(Place(one, before)), one.rend(),
                   [&](const Snapshot& each) { return others.count(each.snap_id) != 0; });
  return found == one.rend() ? std::string() : found->snap_id;
}

Snapshot NewestHeld(const std::vector<std::string>& held, const SnapshotList& here,
                    const SnapshotList& there) {
  Snapshot newest;
  for (const std::string& each : held) {
    const Snapshot* known = Find(here, each);
    if (known == nullptr) known = Find(there, each);
    Snapshot found = known == nullptr ? Snapshot() : *known;
    found.snap_id = each;
    if (newest.snap_id.empty() || found > newest) newest = std::move(found);
  }
  return newest;
}

bool IsNewest(const Snapshot& snapshot, const SnapshotList& snapshots,
              const std::vector<std::string>& held) {
  const Ids ids(held.begin(), held.end());
  return std::none_of(snapshots.begin(), snapshots.end(), [&](const Snapshot& each) {
    return each > snapshot && ids.count(each.snap_id) != 0;
  });
}

ArrivedSnapshots WhatArrived(const Snapshot& recorded, const std::string& inHand,
                             const SnapshotList& present) {
  ArrivedSnapshots arrived;
  arrived.recorded_id = recorded.snap_id;
  arrived.recorded_time = recorded.create_time;
  arrived.is_gone = !recorded.snap_id.empty() && Find(present, recorded.snap_id) == nullptr;
  for (const Snapshot& each : present) {
    const bool isOlder = arrived.is_gone && each.meta.description != kBeforeReprotect &&
                         (recorded.create_time == 0 || recorded > each);
    const bool counts = each.snap_id == recorded.snap_id || each.snap_id == inHand || isOlder;
    if (counts && (arrived.newest.snap_id.empty() || each > arrived.newest)) arrived.newest = each;
  }
  return arrived;
}

std::vector<std::string> NewerThan(const SnapshotList& snapshots, const std::string& snapId,
                                   std::uint32_t time) {
  const Snapshot* found = Find(snapshots, snapId);
  std::vector<std::string> newer;
  for (const Snapshot& each : snapshots) {
    if (found != nullptr ? each > *found : each.create_time > time) newer.push_back(each.snap_id);
  }
  return newer;
}

std::vector<std::string> StillToSend(const std::vector<std::string>& waiting,
                                     const SnapshotList& source, const SnapshotList& replica) {
  const Ids waits(waiting.begin(), waiting.end());
  const Ids arrived = IdsOf(replica);
  std::vector<std::string> still;
  for (const Snapshot& each : source) {
    const bool isWaiting = waits.count(each.snap_id) != 0;
    if (isWaiting && arrived.count(each.snap_id) == 0) still.push_back(each.snap_id);
  }
  return still;
}

void SortByAge(SnapshotList snapshots, std::vector<std::string>& snapIds) {
  std::sort(snapshots.begin(), snapshots.end(), [](const auto& a, const auto& b) { return b > a; });
  std::unordered_map<std::string_view, std::size_t> places;
  for (const Snapshot& each : snapshots) places.emplace(each.snap_id, places.size());
  const auto place = [&](const std::string& id) {
    const auto found = places.find(id);
    return found == places.end() ? places.size() : found->second;
  };
  std::stable_sort(snapIds.begin(), snapIds.end(),
                   [&](const auto& a, const auto& b) { return place(a) < place(b); });
}

SnapshotList Leftovers(const SnapshotList& snapshots, const std::string& description,
                       const std::set<std::string>& needed) {
  SnapshotList leftovers;
  std::copy_if(snapshots.begin(), snapshots.end(), std::back_inserter(leftovers),
               [&](const Snapshot& each) {
                 return each.meta.description == description && needed.count(each.snap_id) == 0;
               });
  return leftovers;
}

}  // namespace VrelDR::SnapshotHistory
