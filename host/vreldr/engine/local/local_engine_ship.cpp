// How a snapshot gets from one volume to another.
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <vector>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/arrival.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "engine/local/holes.h"
#include "engine/local/links.h"
#include "engine/local/local_engine.h"
#include "engine/local/place.h"
#include "engine/local/rsync.h"
#include "engine/local/send_receive.h"
#include "engine/local/settle.h"
#include "engine/local/shipment.h"
#include "engine/local/subvolume.h"
#include "engine/local/tree_copy.h"
#include "engine/local/tree_remove.h"
#include "engine/local/write_back.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine

namespace {

constexpr SettleSteps kShipSteps{kShipFrozen, kShipRenamed};

// Takes the lock of the directory. Processes of a call that was killed hold it until they have
// ended too, which is soon.
Status LockIncoming(int dirFd, const std::string& path, Watcher& watcher) {
  for (int tries = 0; flock(dirFd, LOCK_EX | LOCK_NB) != 0; ++tries) {
    if (errno != EWOULDBLOCK && errno != EINTR) return StatusOfErrno(errno, path);
    if (!watcher.GoesOn()) return Watch::Stopped();
    if (tries == 100) {
      return {kErrBusy, "another process still writes to " + Quoted(path) +
                            "; wait for its end and run it again"};
    }
    const struct timespec pause = {0, 100'000'000};
    nanosleep(&pause, nullptr);
  }
  return {};
}

// Readies what is in the incoming directory for being changed in place until it is what `fromFd`
// is. 0 or an errno.
int MakeWhatIsThereFit(int incomingFd, int fromFd, Watch& watch) {
  int error = IsSubvolume(incomingFd) ? SetAccess(incomingFd, Access::kWritable)
                                      : SetFrozen(incomingFd, false);
  if (error == 0) error = ThawBelow(incomingFd);
  if (error == 0) error = SeparateLinks(incomingFd, fromFd, watch);
  if (error == 0) error = LayOutHoles(fromFd, incomingFd, watch);
  return error;
}

// What programs say of a full or read-only volume does not name it.
Status AboutVolume(const std::string& path, Status status) {
  const bool isOfVolume = status.code == kErrNoSpace || status.code == kErrReadOnly;
  return isOfVolume ? InContext(Quoted(path), std::move(status)) : status;
}

}  // namespace

// The directories between which a snapshot is shipped.
struct LocalEngine::Route {
  const LocalEngine& to;
  const Target& replica;
  const std::string& snap_id;
  const std::string& base_id;
  std::string from_path = {};       // the snapshot
  std::string from_base_path = {};  // the base beside it; empty when there is none in both places
  std::string incoming_dir_path = {};  // where the snapshot arrives,
  std::string incoming_path = {};      // under this name
  Fd from = {};                        // the snapshot
  Opened there = {};                   // the replica's volume,
  Fd snapshots = {}, incoming = {};    // and what it has of the replica

  // Finds out what is there already; nobody else changes that meanwhile.
  Status Look();
  bool is_there = false;     // the snapshot is one of the replica's
  bool has_arrived = false;  // something of it is in the incoming directory,
  bool is_whole = false;     // and that is all of it
};

Status LocalEngine::Route::Look() {
  int error = FindEntry(snapshots.Get(), snap_id, is_there);
  if (error == 0) error = FindEntry(incoming.Get(), snap_id, has_arrived);
  if (error == 0) error = IsMarkedWhole(incoming.Get(), snap_id, is_whole);
  return error == 0 ? Status() : StatusOfErrno(error, to.path_);
}

Status LocalEngine::Ship(const Target& source, const std::string& snapId, const std::string& baseId,
                         const StorageEngine& to, const Target& replica, Watcher& watcher) const {
  const auto* there = dynamic_cast<const LocalEngine*>(&to);
  if (there == nullptr) {
    return {kErrUnsupported, "what is in a directory of this node cannot be shipped to " +
                                 Quoted(to.GetWhere()) +
                                 "; choose a volume that is a directory of this node"};
  }
  Status status = FailPoint(kFailShip, replica.GetId());
  if (!status.IsOk()) return status;
  Route route{*there, replica, snapId, baseId};
  status = OpenRoute(source, route);
  if (status.IsOk()) status = LockIncoming(route.incoming.Get(), there->path_, watcher);
  if (!status.IsOk()) return status;
  KillPoint(kShipBegun);

  WriteBack writeBack(route.there.volume.Get(), there->path_);
  status = route.Look();
  if (status.IsOk()) status = Arrive(route, watcher, writeBack);
  if (!status.IsOk()) return status;
  const int error = RemoveIncoming(route.there.own.Get(), replica);
  if (error != 0) return StatusOfErrno(error, there->path_);
  KillPoint(kShipDone);
  return {};
}

Status LocalEngine::Arrive(const Route& route, Watcher& watcher, WriteBack& writeBack) {
  const int incoming = route.incoming.Get();
  const int snapshots = route.snapshots.Get();
  // Nothing gets there whose bytes are not on disk.
  if (route.is_there) return FinishSettling(snapshots, route.snap_id, writeBack, route.to.path_);
  if (!route.is_whole) {
    if (const int error = Unmark(incoming, route.snap_id)) {
      return StatusOfErrno(error, route.to.path_);
    }
    Status status;
    {
      Shipment shipment(watcher, route.replica.GetId(), incoming, writeBack);
      const Flusher flusher(writeBack);
      status = Bring(route, shipment, writeBack);
    }
    // The programs that move the bytes go into what somebody has mounted meanwhile.
    if (status.IsOk()) status = CheckNoMountsBelow(route.from.Get());
    if (status.IsOk()) status = CheckNoMountsBelow(incoming);
    if (!status.IsOk()) return status;
    KillPoint(kShipSent);
    status = writeBack.Sync();
    if (!status.IsOk()) return status;
    KillPoint(kShipSynced);
    if (const int error = MarkWhole(incoming, route.snap_id)) {
      return StatusOfErrno(error, route.to.path_);
    }
    KillPoint(kShipMarked);
  }
  return Settle(incoming, route.snap_id, snapshots, kShipSteps, writeBack, route.to.path_);
}

Status LocalEngine::OpenRoute(const Target& source, Route& route) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  route.there = route.to.Open();
  if (!route.there.status.IsOk()) return route.there.status;
  const auto dirOf = [](const LocalEngine& engine, const char* area, const Target& target) {
    return engine.path_ + "/" + kOwnDir + "/" + area + "/" + target.GetId();
  };
  const std::string fromDir = dirOf(*this, kSnapshots, source);
  route.from_path = fromDir + "/" + route.snap_id;
  route.incoming_dir_path = dirOf(route.to, kIncoming, route.replica);
  route.incoming_path = route.incoming_dir_path + "/" + route.snap_id;

  Fd from;
  status = OpenSnapshot(source, route.snap_id, own.Get(), from, route.from);
  // The programs that move the bytes would go into what is mounted there.
  const std::string replicaId = route.replica.GetId();
  for (const char* area : {kSnapshots, kIncoming, kTmp}) {
    if (!status.IsOk()) return status;
    status = route.to.CheckUnmounted(route.there.own.Get(), std::string(area) + "/" + replicaId);
  }
  if (!status.IsOk()) return status;
  route.snapshots = OpenOrMakeArea(route.there.own.Get(), kSnapshots, route.replica);
  if (route.snapshots) {
    route.incoming = OpenOrMakeArea(route.there.own.Get(), kIncoming, route.replica);
  }
  if (!route.incoming) return StatusOfErrno(errno, route.to.path_);
  if (route.base_id.empty()) return {};
  bool isHere = false;
  bool isThere = false;
  int error = FindEntry(from.Get(), route.base_id, isHere);
  if (error == 0) error = FindEntry(route.snapshots.Get(), route.base_id, isThere);
  if (error != 0) return StatusOfErrno(error, route.base_id);
  if (isHere && isThere) route.from_base_path = fromDir + "/" + route.base_id;
  return {};
}

Status LocalEngine::Bring(const Route& route, Shipment& shipment, WriteBack& writeBack) {
  const bool isSent = IsSubvolume(route.from.Get()) && IsBtrfs(route.incoming.Get());
  if (isSent && !route.has_arrived) return Send(route, shipment);
  // What an earlier call wrote may never have reached the disk, whatever is in memory: synced by
  // now, it is read from there and compared.
  Status status =
      route.has_arrived ? writeBack.Sync() : PrepareIncoming(route, shipment.GetWatch());
  if (!status.IsOk()) return status;
  const Fd incoming = OpenDir(route.incoming.Get(), route.snap_id);
  if (!incoming) return StatusOfErrno(errno, route.incoming_path);
  int error = route.has_arrived ? ForgetCached(incoming.Get()) : 0;
  if (error == 0) {
    error = MakeWhatIsThereFit(incoming.Get(), route.from.Get(), shipment.GetWatch());
  }
  if (error == ECANCELED) return Watch::Stopped();
  if (error != 0) return StatusOfErrno(error, route.incoming_path);
  status = AboutVolume(route.to.path_, Rsync(route.from_path, route.incoming_path, shipment));
  if (!status.IsOk() || !isSent) return status;
  error = SetReceived(incoming.Get(), route.from.Get());
  return error == 0 ? Status() : StatusOfErrno(error, route.incoming_path);
}

Status LocalEngine::Send(const Route& route, Shipment& shipment) {
  bool givenUp = false;
  Status status = SendReceive(route.from_path, route.from_base_path, route.incoming_dir_path,
                              shipment, givenUp);
  if (givenUp && status.code == kErrIo && !route.from_base_path.empty()) {
    // Perhaps for the base's sake, such as one that was not received but made: all is sent then.
    const int error = RemoveTree(route.incoming.Get(), route.snap_id);
    if (error != 0) return StatusOfErrno(error, route.to.path_);
    status = SendReceive(route.from_path, {}, route.incoming_dir_path, shipment, givenUp);
  }
  return AboutVolume(route.to.path_, std::move(status));
}

Status LocalEngine::PrepareIncoming(const Route& route, Watch& watch) {
  const Fd base =
      route.from_base_path.empty() ? Fd() : OpenDir(route.snapshots.Get(), route.base_id);
  const int incoming = route.incoming.Get();
  if (IsBtrfs(incoming)) {
    const int error =
        base && IsSubvolume(base.Get())
            ? SnapshotSubvolume(base.Get(), incoming, route.snap_id, Access::kWritable)
            : MakeSubvolume(incoming, route.snap_id);
    return error == 0 ? Status() : StatusOfErrno(error, route.to.path_);
  }
  if (!base) {
    const bool made = mkdirat(incoming, route.snap_id.c_str(), 0700) == 0;
    return made ? Status() : StatusOfErrno(errno, route.to.path_);
  }
  // Half a copy of the base would hide from the next call what the base has: it arrives as a whole.
  const Fd tmp = OpenOrMakeArea(route.there.own.Get(), kTmp, route.replica);
  if (!tmp) return StatusOfErrno(errno, route.to.path_);
  int error = RemoveTree(tmp.Get(), route.snap_id);
  if (error == 0 && mkdirat(tmp.Get(), route.snap_id.c_str(), 0700) != 0) error = errno;
  const Fd copy = error == 0 ? OpenDir(tmp.Get(), route.snap_id) : Fd();
  if (!copy) return StatusOfErrno(error != 0 ? error : errno, route.to.path_);
  TreeCopier copier(copy.Get(), Strictness::kAll, TreeCopier::FlagsOf::kArchived, &watch);
  Status status =
      copier.CopyContent(base.Get(), route.to.SnapshotDir(route.replica, route.base_id));
  if (!status.IsOk()) return status;
  if (renameat(tmp.Get(), route.snap_id.c_str(), incoming, route.snap_id.c_str()) != 0) {
    error = errno;
  }
  if (error == 0) error = RemoveArea(route.there.own.Get(), kTmp, route.replica);
  return error == 0 ? Status() : StatusOfErrno(error, route.to.path_);
}

Status LocalEngine::DropShipments(const Target& replica, const std::string& keepSnapId) const {
  auto [volume, own, status] = Open();
  if (!status.IsOk()) return status;
  const Fd incoming = OpenArea(own.Get(), kIncoming, replica);
  if (!incoming && errno == ENOENT) return {};
  if (!incoming) return AreaFailure(errno, own.Get(), kIncoming, replica);
  status = CheckUnmounted(own.Get(), std::string(kIncoming) + "/" + replica.GetId());
  if (!status.IsOk()) return status;
  const int error = DropArrived(incoming.Get(), keepSnapId);
  return error == 0 ? Status() : StatusOfErrno(error, path_);
}

}  // namespace VrelDR
