#include "engine/local/ship_sink.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/arrival.h"
#include "engine/local/directory.h"
#include "engine/local/kept_digests.h"
#include "engine/local/settle.h"
#include "engine/local/subvolume.h"
#include "engine/local/tree_copy.h"
#include "engine/local/tree_remove.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

namespace {

constexpr SettleSteps kShipSteps{kShipFrozen, kShipRenamed};

// The name of a copy of the base that is being made. No identifier begins with a dot.
std::string BaseName(const std::string& snapId) {
  return ".base." + snapId;
}

}  // namespace

Status ShipSink::Open(Watcher& watcher) {
  there_ = dir_.Open(replica_, watcher);
  if (!there_.status.IsOk()) return there_.status;
  // The programs that move the bytes would go into what is mounted there.
  for (const char* area : {kSnapshots, kIncoming}) {
    Status status =
        dir_.CheckUnmounted(there_.own.Get(), std::string(area) + "/" + replica_.locator);
    if (!status.IsOk()) return status;
  }
  snapshots_ = OpenOrMakeArea(there_.own.Get(), kSnapshots, replica_);
  if (snapshots_) incoming_ = OpenOrMakeArea(there_.own.Get(), kIncoming, replica_, &is_new_);
  return incoming_ ? Status() : StatusOfErrno(errno, GetVolumePath());
}

Status ShipSink::Lock(Watch& watch) {
  // Processes of a call that was killed hold it until they have ended too, which is soon.
  constexpr int kMostTries = 100;
  Status status = LockDir(incoming_.Get(), GetVolumePath(), kMostTries, watch);
  if (!status.IsOk()) return status;
  int error = FindEntry(snapshots_.Get(), snap_id_, is_there_);
  if (error == 0) error = FindEntry(incoming_.Get(), snap_id_, has_arrived_);
  if (error == 0) error = IsMarkedWhole(incoming_.Get(), snap_id_, is_whole_);
  return error == 0 ? Status() : StatusOfErrno(error, GetVolumePath());
}

int ShipSink::HasSnapshot(const std::string& snapId, bool& has) const {
  return FindEntry(snapshots_.Get(), snapId, has);
}

Fd ShipSink::OpenSnapshot(const std::string& snapId) const {
  return OpenDir(snapshots_.Get(), snapId);
}

std::string ShipSink::GetIncomingDirPath() const {
  return dir_.AreaPath(kIncoming, replica_);
}

Status ShipSink::Unmark() const {
  // Where nothing was on its way nothing is marked, on disk either: Clear sees to that.
  int error = is_new_ ? 0 : Local::Unmark(incoming_.Get(), snap_id_);
  if (error == 0) error = RemoveTree(incoming_.Get(), DigestsName(snap_id_));
  if (error == 0) error = RemoveDigests(there_.own.Get(), replica_, snap_id_);
  return error == 0 ? Status() : StatusOfErrno(error, GetVolumePath());
}

Status ShipSink::Prepare(const std::string& baseId, Watch& watch) const {
  const Fd base = baseId.empty() ? Fd() : OpenDir(snapshots_.Get(), baseId);
  const int incoming = incoming_.Get();
  if (IsBtrfs(incoming)) {
    const int error = base && IsSubvolume(base.Get())
                          ? SnapshotSubvolume(base.Get(), incoming, snap_id_, Access::kWritable)
                          : MakeSubvolume(incoming, snap_id_);
    return error == 0 ? Status() : StatusOfErrno(error, GetVolumePath());
  }
  if (!base) {
    const bool made = mkdirat(incoming, snap_id_.c_str(), 0700) == 0;
    return made ? Status() : StatusOfErrno(errno, GetVolumePath());
  }
  // Half a copy of the base would hide from the next call what the base has: it arrives as a whole.
  const std::string name = BaseName(snap_id_);
  int error = RemoveTree(incoming, name);
  if (error == 0 && mkdirat(incoming, name.c_str(), 0700) != 0) error = errno;
  const Fd copy = error == 0 ? OpenDir(incoming, name) : Fd();
  if (!copy) return StatusOfErrno(error != 0 ? error : errno, GetVolumePath());
  TreeCopier copier(copy.Get(), Strictness::kAll, TreeCopier::FlagsOf::kArchived, watch);
  Status status = copier.CopyContent(base.Get(), dir_.SnapshotPath(replica_, baseId));
  if (!status.IsOk()) return status;
  const bool isNamed = renameat(incoming, name.c_str(), incoming, snap_id_.c_str()) == 0;
  return isNamed ? Status() : StatusOfErrno(errno, GetVolumePath());
}

Status ShipSink::Discard() const {
  const int error = RemoveTree(incoming_.Get(), snap_id_);
  return error == 0 ? Status() : StatusOfErrno(error, GetVolumePath());
}

Status ShipSink::MarkWhole() const {
  const int error = Local::MarkWhole(incoming_.Get(), snap_id_);
  return error == 0 ? Status() : StatusOfErrno(error, GetVolumePath());
}

Status ShipSink::Settle(WriteBack& writeBack, Below below) const {
  if (!is_there_) {
    PlaceDigests(incoming_.Get(), there_.own.Get(), replica_, snap_id_);
    KillPoint(kShipDigestsPlaced);
    Status status = BeginSettling(incoming_.Get(), snap_id_, snapshots_.Get(), kShipSteps,
                                  GetVolumePath(), below);
    if (!status.IsOk()) return status;
  }
  // On disk with what comes last. Should they go without the name of the snapshot getting there,
  // it is compared once more.
  if (const int error = RemoveMarks(incoming_.Get(), snap_id_)) {
    return StatusOfErrno(error, GetVolumePath());
  }
  return FinishSettling(snapshots_.Get(), snap_id_, writeBack, GetVolumePath());
}

Status ShipSink::Clear() const {
  int error = DropArrived(incoming_.Get(), {});
  if (error == 0) error = RemoveEmptyArea(there_.own.Get(), kIncoming, replica_);
  return error == 0 ? Status() : StatusOfErrno(error, GetVolumePath());
}

}  // namespace VrelDR::Local
