#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace torture {

// How the host's state, the links of its groups and its volumes lie on disks.
enum class Layout {
  kOneDisk,      // all of them are directories of one file system
  kDiskEach,     // state and links on one disk, every volume on one of its own
  kCachedDisks,  // the same, and the disks have volatile write caches
};

std::string NameOf(Layout layout);

// A host's disks, all of them in one file, so that one moment of all of them can be kept: a cut of
// the power. The file lies on a file system that shares blocks.
//
// One set of disks is in its place at a time: the live one, where a sequence of commands runs, or a
// cut of it. Everything lies below `root`, in a mount namespace of the caller's own, and goes with
// that.
class Disks {
 public:
  // Makes file systems of this type: ext4, xfs or btrfs. `why` says what did not work, and is empty
  // when all did.
  Disks(const std::string& root, Layout layout, const std::string& type, std::string& why);
  ~Disks();
  Disks(const Disks&) = delete;
  Disks& operator=(const Disks&) = delete;

  std::string StateDir() const;
  std::vector<std::string> Volumes() const;  // their names
  std::string VolumePath(const std::string& name) const;

  // All give "" or what did not work.

  // Puts empty disks, or a copy of what was kept as `name`, in place as the live ones.
  std::string Renew(const std::string& name = "");
  // Takes the live ones away, and brings them back as they were.
  std::string Leave();
  std::string Return();
  // Keeps, as `name`, what the live disks hold when the power is cut now. `seed` chooses what of
  // the caches survives.
  std::string Cut(const std::string& name, unsigned seed);
  // Puts a cut in place. It is gone after that.
  std::string Enter(const std::string& name);
  std::string Drop();
  // Gives up what was kept.
  void Forget(const std::string& name) const;

  // Brings to disk what was written on a volume.
  std::string Sync(const std::string& volume) const;

 private:
  std::string Kept(const std::string& name) const { return store_ + "/" + name; }
  std::string MakeEmpty();
  std::string StartCaches();
  void StopCaches();
  std::string MountAll(const std::string& image, bool isCached);
  std::string UnmountAll();
  std::size_t Count() const { return layout_ == Layout::kOneDisk ? 1 : 1 + Volumes().size(); }

  std::string root_;
  Layout layout_;
  std::string type_;
  std::string store_;
  std::vector<std::string> mounted_;  // in the order of mounting
  std::string entered_;
  pid_t caches_ = -1;
};

}  // namespace torture
