#pragma once

#include <cstdint>
#include <string>

#include "vrelcore/export.h"

namespace VrelDR::Operation {

// What a caller says of a snapshot that it has taken.
struct VREL_API SnapshotMeta {
  SnapshotMeta() = default;
  SnapshotMeta(const std::string& snapshotDescription, bool isLocked, bool isAppConsistent,
               const std::string& takenBy)
      : description(snapshotDescription),
        is_locked(isLocked),
        is_app_consistent(isAppConsistent),
        taken_by(takenBy) {}

  std::string description;
  bool is_locked = false;
  bool is_app_consistent = false;
  std::string taken_by;
};

// One existing snapshot of a target.
struct VREL_API Snapshot {
  // Seconds since the epoch. No two snapshots that a target ever had have the same: callers name
  // things by it.
  std::uint32_t create_time = 0;
  std::string snap_id;         // empty when the snapshot does not exist
  std::uint64_t sequence = 0;  // grows with every snapshot taken on this host
  SnapshotMeta meta;
  std::string path;    // where its bytes can be read
  std::string cut_id;  // of the cut that it is of, see vreldr/cut.h; empty when it is of none
  std::string maker;   // of the process that took it, see ThisMaker; empty when that is not known

  // Newer than: by creation time, then by the order in which the snapshots were taken.
  bool operator>(const Snapshot& other) const {
    return create_time != other.create_time ? create_time > other.create_time
                                            : sequence > other.sequence;
  }
};

// What stands as `maker` in the snapshots that this process takes, and in those of no other
// process: one that was forked off has another. Empty when the system refuses what that takes; then
// nobody can tell them.
VREL_API std::string ThisMaker();

}  // namespace VrelDR::Operation
