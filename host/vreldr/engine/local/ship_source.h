#pragma once

#include <optional>
#include <string>

#include "base/fd.h"
#include "engine/engine.h"
#include "engine/local/digest_file.h"
#include "engine/local/volume_dir.h"

namespace VrelDR::Local {

// The end of a shipment from which a snapshot goes, for the time of one call.
class ShipSource {
 public:
  // All stay longer than this object.
  ShipSource(const VolumeDir& dir, const TargetPlace& source, const std::string& snapId)
      : dir_(dir), source_(source), snap_id_(snapId) {}

  Status Open(Watcher& watcher);
  // Whether the target has that snapshot. 0 or an errno.
  int HasSnapshot(const std::string& snapId, bool& has) const;
  // The digests that are kept of one of them; none when there are none. 0 or an errno.
  int OpenDigests(const std::string& snapId, std::optional<DigestFile>& digests) const;
  // Opens one of the target's snapshots. False with errno set on a failure.
  Fd OpenSnapshot(const std::string& snapId) const;

  int GetFd() const { return snapshot_.Get(); }
  // The directory that has all of the target's snapshots.
  int GetSnapshotsFd() const { return snapshots_.Get(); }
  std::string GetPath() const { return PathOf(snap_id_); }
  std::string PathOf(const std::string& snapId) const { return dir_.SnapshotPath(source_, snapId); }

 private:
  const VolumeDir& dir_;
  const TargetPlace& source_;
  const std::string& snap_id_;
  Fd own_, snapshots_, snapshot_;
};

}  // namespace VrelDR::Local
