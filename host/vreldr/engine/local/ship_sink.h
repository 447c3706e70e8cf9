#pragma once

#include <string>

#include "base/fd.h"
#include "engine/engine.h"
#include "engine/local/settle.h"
#include "engine/local/volume_dir.h"
#include "engine/local/write_back.h"

namespace VrelDR {

class Watch;

namespace Local {

// The end of a shipment at which a snapshot arrives, for the time of one call: the replica's
// volume, and what it has of the replica.
class ShipSink {
 public:
  // All stay longer than this object.
  ShipSink(const VolumeDir& dir, const TargetPlace& replica, const std::string& snapId)
      : dir_(dir), replica_(replica), snap_id_(snapId) {}

  // Opens what there is, making what is missing; nothing of it is used before Lock.
  Status Open(Watcher& watcher);
  // Keeps other shipments to the replica away, and finds out what is there already.
  Status Lock(Watch& watch);

  bool IsThere() const { return is_there_; }        // the snapshot is one of the replica's
  bool HasArrived() const { return has_arrived_; }  // something of it is on its way,
  bool IsWhole() const { return is_whole_; }        // and that is all of it
  // Whether the replica has that snapshot. 0 or an errno.
  int HasSnapshot(const std::string& snapId, bool& has) const;
  // Opens one of the replica's snapshots. False with errno set on a failure.
  Fd OpenSnapshot(const std::string& snapId) const;

  int GetIncomingFd() const { return incoming_.Get(); }
  int GetVolumeFd() const { return there_.volume.Get(); }
  std::string GetIncomingDirPath() const;
  std::string GetIncomingPath() const { return GetIncomingDirPath() + "/" + snap_id_; }
  const std::string& GetReplicaId() const { return replica_.id; }
  const std::string& GetVolumePath() const { return dir_.GetPath(); }

  // Nothing that arrives is taken for whole until MarkWhole, and no digests are those of it that
  // are not written from now on.
  Status Unmark() const;
  // Makes the place where the snapshot arrives, with the bytes of `baseId` when that is not empty;
  // as a whole, so that nothing that the base has is sent again.
  Status Prepare(const std::string& baseId, Watch& watch) const;
  // Removes what has arrived, piece by piece.
  Status Discard() const;
  // All has arrived and is on disk.
  Status MarkWhole() const;
  // Makes what has arrived as a whole one of the replica's snapshots, durably; once more is fine.
  Status Settle(WriteBack& writeBack, Below below) const;
  // Removes what is on its way, of other snapshots too, durably.
  Status Clear() const;

 private:
  const VolumeDir& dir_;
  const TargetPlace& replica_;
  const std::string& snap_id_;
  VolumeDir::Opened there_;
  Fd snapshots_, incoming_;
  bool is_new_ = false;  // the place where snapshots arrive
  bool is_there_ = false;
  bool has_arrived_ = false;
  bool is_whole_ = false;
};

}  // namespace Local

}  // namespace VrelDR
