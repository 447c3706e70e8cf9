#include "engine/local/local_link.h"

#include <cerrno>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/arrival.h"
#include "engine/local/change_way.h"
#include "engine/local/directory.h"
#include "engine/local/freeze.h"
#include "engine/local/holes.h"
#include "engine/local/kept_digests.h"
#include "engine/local/links.h"
#include "engine/local/place.h"
#include "engine/local/rsync.h"
#include "engine/local/send_receive.h"
#include "engine/local/ship_sink.h"
#include "engine/local/ship_source.h"
#include "engine/local/shipment.h"
#include "engine/local/subvolume.h"
#include "engine/support/watch.h"

namespace VrelDR {

using namespace Local;  // the parts of the engine

namespace {

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

// One shipment between two ends that are both open.
class Way {
 public:
  Way(const ShipSource& source, const ShipSink& sink, const std::string& snapId)
      : source_(source), sink_(sink), snap_id_(snapId) {}

  // Only a base that both ends have is one.
  Status FindBase(const std::string& baseId);
  // Makes the replica have the snapshot; something of it may stay on its way.
  Status Arrive(const TargetPlace& replica, Watcher& watcher) const;

 private:
  // Makes the place where the snapshot arrives hold all of it, going on from what is there; `below`
  // becomes what it is then.
  Status Bring(Shipment& shipment, WriteBack& writeBack, Below& below) const;
  // Does that between volumes on btrfs, from the beginning.
  Status Send(Shipment& shipment, WriteBack& writeBack) const;
  // Does that by comparing all, on a copy of the base if nothing has arrived.
  Status Compare(Shipment& shipment, WriteBack& writeBack, bool hasArrived, bool isSent) const;

  const ShipSource& source_;
  const ShipSink& sink_;
  const std::string& snap_id_;
  std::string base_id_;
};

Status Way::FindBase(const std::string& baseId) {
  if (baseId.empty()) return {};
  bool isHere = false;
  bool isThere = false;
  int error = source_.HasSnapshot(baseId, isHere);
  if (error == 0) error = sink_.HasSnapshot(baseId, isThere);
  if (isHere && isThere) base_id_ = baseId;
  return error == 0 ? Status() : StatusOfErrno(error, baseId);
}

Status Way::Arrive(const TargetPlace& replica, Watcher& watcher) const {
  WriteBack writeBack(sink_.GetVolumeFd(), sink_.GetVolumePath());
  // Nothing gets there whose bytes are not on disk.
  if (sink_.IsThere() || sink_.IsWhole()) return sink_.Settle(writeBack, Below::kLoose);
  Status status = sink_.Unmark();
  if (!status.IsOk()) return status;
  Below below = Below::kLoose;
  Shipment shipment(watcher, replica.id, writeBack);
  status = Bring(shipment, writeBack, below);
  // The programs that move the bytes go by paths: into another volume that has taken the place of
  // this one, or into what somebody has mounted meanwhile.
  if (status.IsOk()) status = CheckStillAt(source_.GetFd(), source_.GetPath());
  if (status.IsOk()) status = CheckStillAt(sink_.GetIncomingFd(), sink_.GetIncomingDirPath());
  if (status.IsOk()) status = CheckNoMountsBelow(source_.GetFd());
  if (status.IsOk()) status = CheckNoMountsBelow(sink_.GetIncomingFd());
  if (!status.IsOk()) return status;
  KillPoint(kShipSent);
  status = writeBack.Sync();
  if (!status.IsOk()) return status;
  KillPoint(kShipSynced);
  status = sink_.MarkWhole();
  if (!status.IsOk()) return status;
  KillPoint(kShipMarked);
  return sink_.Settle(writeBack, below);
}

Status Way::Bring(Shipment& shipment, WriteBack& writeBack, Below& below) const {
  const bool isSent = IsSubvolume(source_.GetFd()) && IsBtrfs(sink_.GetIncomingFd());
  bool hasArrived = sink_.HasArrived();
  if (isSent && !hasArrived) return Send(shipment, writeBack);
  if (!isSent && FailPoint(kFailShipByChanges, shipment.GetReplicaId()).IsOk()) {
    ChangeWay changes(source_, sink_, snap_id_, base_id_);
    Status status = changes.Bring(shipment, writeBack, hasArrived);
    if (!status.IsOk() || changes.IsDone()) {
      below = Below::kFixed;
      return status;
    }
  }
  return Compare(shipment, writeBack, hasArrived, isSent);
}

Status Way::Compare(Shipment& shipment, WriteBack& writeBack, bool hasArrived, bool isSent) const {
  const Flusher flusher(writeBack);
  // What an earlier call wrote may never have reached the disk, whatever is in memory: synced by
  // now, it is read from there and compared.
  Status status = hasArrived ? writeBack.Sync() : sink_.Prepare(base_id_, shipment.GetWatch());
  if (!status.IsOk()) return status;
  const Fd incoming = OpenDir(sink_.GetIncomingFd(), snap_id_);
  if (!incoming) return StatusOfErrno(errno, sink_.GetIncomingPath());
  int error = hasArrived ? ForgetCached(incoming.Get()) : 0;
  if (error == 0) error = MakeWhatIsThereFit(incoming.Get(), source_.GetFd(), shipment.GetWatch());
  if (error == ECANCELED) return Watch::Stopped();
  if (error != 0) return StatusOfErrno(error, sink_.GetIncomingPath());
  status = AboutVolume(sink_.GetVolumePath(), Rsync(source_.GetPath(), sink_.GetIncomingPath(),
                                                    sink_.GetIncomingFd(), shipment));
  if (!status.IsOk() || !isSent) return status;
  error = SetReceived(incoming.Get(), source_.GetFd());
  return error == 0 ? Status() : StatusOfErrno(error, sink_.GetIncomingPath());
}

Status Way::Send(Shipment& shipment, WriteBack& writeBack) const {
  const Flusher flusher(writeBack);
  bool givenUp = false;
  const auto send = [&](const std::string& basePath) {
    StreamSource source(source_.GetPath(), basePath);
    StreamSink sink(sink_.GetIncomingDirPath(), snap_id_);
    return SendReceive(source, sink, sink_.GetIncomingFd(), shipment, givenUp);
  };
  Status status = send(base_id_.empty() ? std::string() : source_.PathOf(base_id_));
  if (givenUp && status.code == kErrIo && !base_id_.empty()) {
    // Perhaps for the base's sake, such as one that was not received but made: all is sent then.
    status = sink_.Discard();
    if (status.IsOk()) status = send({});
  }
  return AboutVolume(sink_.GetVolumePath(), std::move(status));
}

}  // namespace

// Any target can go to any directory.
Status LocalLink::Check(const TargetPlace& /*source*/, Watcher& /*watcher*/) const {
  return {};
}

Status LocalLink::Attach(const TargetPlace& /*source*/, const TargetPlace& /*replica*/,
                         Watcher& /*watcher*/) const {
  return {};
}

Status LocalLink::Detach(const TargetPlace& /*source*/, const TargetPlace& /*replica*/,
                         Watcher& /*watcher*/) const {
  return {};
}

Status LocalLink::Ship(const TargetPlace& source, const std::string& snapId,
                       const std::string& baseId, const TargetPlace& replica,
                       Watcher& watcher) const {
  ShipSource from(from_, source, snapId);
  ShipSink to(to_, replica, snapId);
  Way way(from, to, snapId);
  Status status = FailPoint(kFailShip, replica.id);
  if (status.IsOk()) status = from.Open(watcher);
  if (status.IsOk()) status = to.Open(watcher);
  if (status.IsOk()) status = way.FindBase(baseId);
  Watch watch(watcher);
  if (status.IsOk()) status = to.Lock(watch);
  if (!status.IsOk()) return status;
  KillPoint(kShipBegun);
  status = way.Arrive(replica, watcher);
  if (status.IsOk()) status = to.Clear();
  if (status.IsOk()) KillPoint(kShipDone);
  return status;
}

Status LocalLink::Drop(const TargetPlace& replica, const std::string& keepSnapId,
                       Watcher& watcher) const {
  auto [volume, own, status] = to_.Open(replica, watcher);
  if (!status.IsOk()) return status;
  const int stray = RemoveStrayDigests(own.Get(), replica, keepSnapId);
  if (stray != 0) return to_.AreaFailure(stray, own.Get(), kDigests, replica);
  const Fd incoming = OpenArea(own.Get(), kIncoming, replica);
  if (!incoming && errno == ENOENT) return {};
  if (!incoming) return to_.AreaFailure(errno, own.Get(), kIncoming, replica);
  status = to_.CheckUnmounted(own.Get(), std::string(kIncoming) + "/" + replica.locator);
  if (!status.IsOk()) return status;
  const int error = DropArrived(incoming.Get(), keepSnapId);
  return error == 0 ? Status() : StatusOfErrno(error, to_.GetPath());
}

}  // namespace VrelDR
