#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/fd.h"
#include "engine/engine.h"

namespace VrelDR::Local {

// The directory of this node that a volume is:
//
//   <volume>/<target>/                               a target; a subvolume on btrfs
//   <volume>/.vreldr/volume.json                     its identity
//   <volume>/.vreldr/snapshots/<target>/<snapshot>/  its snapshots
//   <volume>/.vreldr/snapshots/<target>/.going.<snapshot>/  one that is being removed
//   <volume>/.vreldr/snapshots/<target>/.cut.<snapshot>/  one of a cut, not taken up; on btrfs
//   <volume>/.vreldr/cut/                            what cuts change; see commit_window.h
//   <volume>/.vreldr/tmp/<target>/                   copies that are being made
//   <volume>/.vreldr/incoming/<target>/<snapshot>/   what has arrived of a shipment so far
//   <volume>/.vreldr/incoming/<target>/.base.<snapshot>/  what it is to begin with, being copied
//   <volume>/.vreldr/incoming/<target>/.whole.<snapshot>  says that this is all, and on disk
//   <volume>/.vreldr/digests/<target>/<snapshot>     what tells the bytes of its files; not on
//   btrfs <volume>/.vreldr/{tmp,incoming}/<target>/.digests.<snapshot>  the same, not in its place
//   yet <volume>/.vreldr/frozen/<target>/                what its user had made immutable; see
//   frozen.h
//
// <target> is the target's locator. A LUN's bytes are the file "disk.img" in its directory. On
// btrfs a snapshot is a read-only subvolume snapshot; elsewhere it is a copy, with the immutable
// flag where that can be set.
//
// Every call looks at the identity on the very descriptor that it then works with. A volume without
// ".vreldr" is taken for missing: a directory over which a file system is not mounted right now
// looks like that, and nobody shall take it for one whose targets were removed.
class VolumeDir {
 public:
  explicit VolumeDir(std::string path) : path_(std::move(path)) {}

  const std::string& GetPath() const { return path_; }
  void Expect(const VolumeIdentity& identity);

  // Opens the volume, and makes sure that it is the expected one. As the first step of a call it
  // asks the watcher whether to go on.
  Status Open(Fd& volume, Watcher& watcher) const;
  // Without looking at what is expected.
  Status OpenAny(Fd& volume, Watcher& watcher) const;
  // The volume as a call works with it: one descriptor of it, and one of its ".vreldr", from the
  // call's beginning to its end. On a failure, which `status` tells, what is open is of no use.
  struct Opened {
    Fd volume;
    Fd own;
    Status status;
  };
  Opened Open(Watcher& watcher) const;
  // kErrStore when no engine of this kind can have given the target's locator.
  static Status CheckLocator(const TargetPlace& target);
  // The same for a call about a target whose locator is good.
  Opened Open(const TargetPlace& target, Watcher& watcher) const;
  // The same, unless a test lets this step fail for the target.
  Opened Open(std::string_view failPoint, const TargetPlace& target, Watcher& watcher) const;

  std::string PathOf(const TargetPlace& target) const { return path_ + "/" + target.locator; }
  std::string AreaPath(const char* area, const TargetPlace& target) const;
  std::string SnapshotPath(const TargetPlace& target, const std::string& snapId) const;

  // Good when nothing is mounted on an entry of the volume, on the way to it or below it; `path`
  // leads to it from the directory `dirFd`.
  Status CheckUnmounted(int dirFd, const std::string& path) const;
  // Why the target's directory of an area could not be used, from an errno: what is mounted there
  // is named.
  Status AreaFailure(int error, int ownFd, const char* area, const TargetPlace& target) const;
  // Opens a snapshot and the directory that has all of the target's.
  Status OpenSnapshot(const TargetPlace& target, const std::string& snapId, int ownFd,
                      Fd& snapshots, Fd& snapshot) const;

 private:
  Status CheckIdentity(int volumeFd) const;

  std::string path_;
  std::optional<VolumeIdentity> expected_;
  std::string expected_text_;  // of its file
};

}  // namespace VrelDR::Local
