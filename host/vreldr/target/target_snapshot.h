#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "target/host.h"
#include "vreldr/cut.h"

namespace VrelDR {

// A snapshot that shall be taken.
struct SnapshotOrder {
  std::string snap_id;  // a new one when it is empty
  Operation::SnapshotMeta meta;
  std::uint32_t after = 0;          // its time is later than this one
  const DRPlan* plan = nullptr;     // in whose hand it then is
  Watcher* watcher = nullptr;       // may be null
  std::optional<CutInfo> cut = {};  // that it is of, when it is not taken up from one
  // Makes the bytes when that is not done by taking a snapshot of a target that works.
  std::function<Status(const StorageEngine&, const TargetPlace&, const std::string& snapId)> make =
      {};
};

// Takes a snapshot of a target that was opened to be written, whole or not at all, or takes up the
// one of a cut that was borrowed with the target. Its identifier, time and meta are in `taken`
// afterwards.
Status TakeSnapshotOf(const HostTarget& opened, const SnapshotOrder& order,
                      Operation::Snapshot& taken);

// A snapshot of the target; kErrSnapshotMissing when it has none of that name.
Status FindSnapshot(const HostTarget& opened, const std::string& snapId,
                    Operation::Snapshot& found);

// Deletes a snapshot of a target that was opened to be written, whoever holds it.
Status DeleteSnapshotOf(const HostTarget& opened, const std::string& snapId);

}  // namespace VrelDR
