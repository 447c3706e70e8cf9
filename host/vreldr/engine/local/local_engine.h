#pragma once

#include <memory>
#include <set>
#include <string>

#include "../../fd.h"
#include "../engine.h"

namespace VrelDR {

// A volume that is a directory of this node:
//
//   <volume>/<target>/                               a target; a subvolume on btrfs
//   <volume>/.vreldr/snapshots/<target>/<snapshot>/  its snapshots
//   <volume>/.vreldr/tmp/<target>/                   copies that are being made
//
// A LUN's bytes are the file "disk.img" in its directory. On btrfs a snapshot is a read-only
// subvolume snapshot; elsewhere it is a copy, with the immutable flag where that can be set.
//
// ".vreldr" comes with the first target. A volume that should have targets and is without it is
// taken for missing: a directory over which a file system is not mounted right now looks like that,
// and nobody shall take it for one whose targets were removed.
class LocalEngine : public StorageEngine {
 public:
  explicit LocalEngine(const std::string& path) : path_(path) {}

  std::string GetWhere() const override { return path_; }
  Status Describe(VolumeDescription& description) const override;
  Status CheckWritable() const override;
  std::string GetTargetPath(const Target& target) const override;
  std::string GetSnapshotPath(const Target& target, const std::string& snapId) const override;
  Status PreparePlace(const Target& target) const override;
  Status CreateTarget(const Target& target, const TargetContent& content) const override;
  Status FindTarget(const Target& target, bool& found) const override;
  Status RemoveTarget(const Target& target) const override;
  Status TakeSnapshot(const Target& target, const std::string& snapId) const override;
  Status ListSnapshots(const Target& target, std::set<std::string>& snapIds) const override;
  Status RemoveSnapshot(const Target& target, const std::string& snapId) const override;
  Status RestoreSnapshot(const Target& target, const std::string& snapId) const override;
  Status CloneSnapshot(const Target& target, const std::string& snapId,
                       const Target& clone) const override;
  Status CleanUp(const Target& target) const override;

 private:
  Status Open(Fd& volume) const;
  // Also opens the volume's ".vreldr".
  Status Open(Fd& volume, Fd& own) const;
  Status CopySnapshot(const Target& target, const std::string& snapId, int sourceFd, int ownFd,
                      int snapshotsFd) const;
  // Moves a new target from its temporary directory into its place, durably.
  Status Publish(int volumeFd, int ownFd, int tmpFd, const Target& target) const;
  // Makes the new entry `name` of `toFd` what a snapshot holds, open to changes. It is not known to
  // be on disk yet.
  Status CopyFromSnapshot(const Target& target, const std::string& snapId, int ownFd, int toFd,
                          const char* name) const;
  Status Missing(const std::string& path) const;

  std::string path_;
};

// Takes the volume's "path", an absolute one.
Status MakeLocalEngine(const VrelHost::VolumeConfig& volume,
                       std::unique_ptr<StorageEngine>& engine);

}  // namespace VrelDR
