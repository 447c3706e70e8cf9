#include "vreldr/snapshot_history.h"

#include <algorithm>
#include <iterator>

namespace VrelDR::SnapshotHistory {

using Operation::Snapshot;

namespace {

SnapshotList::const_iterator Place(const SnapshotList& snapshots, const std::string& snapId) {
  return std::find_if(snapshots.begin(), snapshots.end(),
                      [&](const Snapshot& each) { return each.snap_id == snapId; });
}

bool Has(const std::vector<std::string>& snapIds, const std::string& snapId) {
  return std::find(snapIds.begin(), snapIds.end(), snapId) != snapIds.end();
}

}  // namespace

const Snapshot* Find(const SnapshotList& snapshots, const std::string& snapId) {
  const auto place = Place(snapshots, snapId);
  return place == snapshots.end() ? nullptr : &*place;
}

std::string NewestCommon(const SnapshotList& one, const SnapshotList& other,
                         const std::string& before) {
  const auto found =
      std::find_if(std::make_reverse_iterator(Place(one, before)), one.rend(),
                   [&](const Snapshot& each) { return Find(other, each.snap_id) != nullptr; });
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
  return std::none_of(snapshots.begin(), snapshots.end(), [&](const Snapshot& each) {
    return each > snapshot && Has(held, each.snap_id);
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
  std::vector<std::string> still;
  for (const Snapshot& each : source) {
    const bool isWaiting = Has(waiting, each.snap_id);
    if (isWaiting && Find(replica, each.snap_id) == nullptr) still.push_back(each.snap_id);
  }
  return still;
}

void SortByAge(SnapshotList snapshots, std::vector<std::string>& snapIds) {
  std::sort(snapshots.begin(), snapshots.end(), [](const auto& a, const auto& b) { return b > a; });
  std::stable_sort(snapIds.begin(), snapIds.end(), [&](const auto& a, const auto& b) {
    return Place(snapshots, a) < Place(snapshots, b);
  });
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
