#include "plan/some_snapshots.h"

#include <algorithm>
#include <optional>

namespace VrelDR {

namespace {

using Operation::Snapshot;

void SortOldestFirst(std::vector<Snapshot>& snapshots) {
  std::ranges::sort(snapshots, [](const Snapshot& a, const Snapshot& b) { return b > a; });
}

}  // namespace

Status SelectRecorded(const Store& store, const std::string& targetId,
                      const std::vector<std::string>& snapIds, std::vector<Snapshot>& found) {
  for (const std::string& each : snapIds) {
    std::optional<SnapshotRow> row;
    Status status = store.GetSnapshotOfAnyState(targetId, each, row);
    if (!status.IsOk()) return status;
    if (row) found.push_back(std::move(row->snapshot));
  }
  SortOldestFirst(found);
  return {};
}

Status SelectPresent(const HostTarget& opened, const std::vector<std::string>& snapIds,
                     std::vector<Snapshot>& found) {
  for (const std::string& each : snapIds) {
    std::optional<Snapshot> snapshot;
    Status status = opened.GetSnapshot(each, snapshot);
    if (!status.IsOk()) return status;
    if (snapshot) found.push_back(*std::move(snapshot));
  }
  SortOldestFirst(found);
  return {};
}

Status HasBytes(const HostTarget& opened, const std::string& snapId, bool& has) {
  std::vector<TargetSight> sights(1);
  TargetSight& sight = sights.front();
  sight.place = opened.GetPlace();
  sight.snap_id = snapId;
  Status status = opened.GetEngine().LookAtTargets(sights, opened.GetWatcher());
  if (status.IsOk()) status = sight.status;
  has = status.IsOk() && sight.has_snapshot;
  return InContext(opened.Cannot("list the snapshots of"), status);
}

}  // namespace VrelDR
