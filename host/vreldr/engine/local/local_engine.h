#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "base/fd.h"
#include "engine/engine.h"

namespace VrelDR {

class Watch;

namespace Local {
class Shipment;
class WriteBack;
}  // namespace Local

// A volume that is a directory of this node:
//
//   <volume>/<target>/                               a target; a subvolume on btrfs
//   <volume>/.vreldr/volume.json                     its identity
//   <volume>/.vreldr/snapshots/<target>/<snapshot>/  its snapshots
//   <volume>/.vreldr/tmp/<target>/                   copies that are being made
//   <volume>/.vreldr/incoming/<target>/<snapshot>/   what has arrived of a shipment so far
//   <volume>/.vreldr/incoming/<target>/.whole.<snapshot>  says that this is all, and on disk
//   <volume>/.vreldr/frozen/<target>/                what its user had made immutable; see frozen.h
//
// A LUN's bytes are the file "disk.img" in its directory. On btrfs a snapshot is a read-only
// subvolume snapshot; elsewhere it is a copy, with the immutable flag where that can be set.
//
// Every call looks at the identity on the very descriptor that it then works with. A volume without
// ".vreldr" is taken for missing: a directory over which a file system is not mounted right now
// looks like that, and nobody shall take it for one whose targets were removed.
class LocalEngine : public StorageEngine {
 public:
  explicit LocalEngine(const std::string& path) : path_(path) {}

  std::string GetWhere() const override { return path_; }
  Status Describe(VolumeDescription& description) const override;
  Status Look(VolumeSight& sight) const override;
  Status Mark(const VolumeIdentity& identity, bool anew) const override;
  void Expect(const VolumeIdentity& identity) override;
  Status CheckWritable() const override;
  std::string GetTargetPath(const Target& target) const override;
  std::string GetSnapshotPath(const Target& target, const std::string& snapId) const override;
  Status PreparePlace(const Target& target) const override;
  Status CreateTarget(const Target& target, const TargetContent& content) const override;
  Status FindTarget(const Target& target, bool& found) const override;
  Status CheckPlace(const Target& target, PlaceUse use) const override;
  Status FindMounts(const Target& target, std::vector<std::string>& paths) const override;
  Status RemoveTarget(const Target& target) const override;
  Status TakeSnapshot(const Target& target, const std::string& snapId,
                      Watcher* watcher) const override;
  Status ListSnapshots(const Target& target, std::set<std::string>& snapIds) const override;
  Status RemoveSnapshot(const Target& target, const std::string& snapId) const override;
  Status RestoreSnapshot(const Target& target, const std::string& snapId) const override;
  Status CloneSnapshot(const Target& target, const std::string& snapId,
                       const Target& clone) const override;
  Status Ship(const Target& source, const std::string& snapId, const std::string& baseId,
              const StorageEngine& to, const Target& replica, Watcher& watcher) const override;
  Status DropShipments(const Target& replica, const std::string& keepSnapId) const override;
  Status Demote(const Target& target) const override;
  Status Promote(const Target& target, const std::string& snapId) const override;
  Status CleanUp(const Target& target) const override;

 private:
  std::string SnapshotDir(const Target& target, const std::string& snapId) const;
  // Opens the volume, and makes sure that it is the expected one.
  Status Open(Fd& volume) const;
  Status OpenAny(Fd& volume) const;
  Status CheckIdentity(int volumeFd) const;
  // The volume as a call works with it: one descriptor of it, and one of its ".vreldr", from the
  // call's beginning to its end. On a failure, which `status` tells, what is open is of no use.
  struct Opened {
    Fd volume;
    Fd own;
    Status status;
  };
  Opened Open() const;
  // The same, unless a test lets this step fail for the target.
  Opened Open(std::string_view failPoint, const Target& target) const;
  Status CopySnapshot(const Target& target, const std::string& snapId, int sourceFd, int ownFd,
                      int snapshotsFd, Local::WriteBack& writeBack, Watcher* watcher) const;
  // Good when nothing is mounted on an entry of the volume, on the way to it or below it; `path`
  // leads to it from the volume.
  Status CheckUnmounted(int volumeFd, const std::string& path) const;
  // Why the target's directory of an area could not be used, from an errno: what is mounted there
  // is named.
  Status AreaFailure(int error, int ownFd, const char* area, const Target& target) const;
  // Good when what is in the target's directory of an area can be removed: nothing is mounted
  // there, and no subvolume is nested in what is there.
  Status CheckArea(int ownFd, const char* area, const Target& target) const;
  // Moves a new target from its temporary directory into its place, durably.
  // `topFlags` are set on its directory then.
  Status Publish(int volumeFd, int ownFd, int tmpFd, const Target& target,
                 unsigned topFlags = 0) const;
  // Opens a snapshot and the directory that has all of the target's.
  Status OpenSnapshot(const Target& target, const std::string& snapId, int ownFd, Fd& snapshots,
                      Fd& snapshot) const;
  // Makes the new entry `name` of `toFd` what a snapshot holds, open to changes. It is not known to
  // be on disk yet. Flags of its top with which it could not be moved are in `topFlags` instead.
  Status CopyFromSnapshot(const Target& target, const std::string& snapId, int ownFd, int toFd,
                          const char* name, unsigned& topFlags) const;
  struct Route;
  Status OpenRoute(const Target& source, Route& route) const;
  // Makes the replica have the snapshot; something of it may stay in the incoming area.
  static Status Arrive(const Route& route, Watcher& watcher, Local::WriteBack& writeBack);
  // Makes the directory of a snapshot in the incoming area hold all of it, going on from what is in
  // it.
  static Status Bring(const Route& route, Local::Shipment& shipment, Local::WriteBack& writeBack);
  // Does that between volumes on btrfs, from the beginning.
  static Status Send(const Route& route, Local::Shipment& shipment);
  // Makes that directory, with the base's bytes when there is one; as a whole, so that nothing that
  // the base has is sent again.
  static Status PrepareIncoming(const Route& route, Watch& watch);
  Status Missing(const std::string& path) const;

  std::string path_;
  std::optional<VolumeIdentity> expected_;
  std::string expected_text_;  // of its file
};

// Takes the volume's "path", an absolute one.
Status MakeLocalEngine(const VrelHost::VolumeConfig& volume,
                       std::unique_ptr<StorageEngine>& engine);

}  // namespace VrelDR
