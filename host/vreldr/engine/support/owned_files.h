#pragma once

#include <sys/stat.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/fd.h"
#include "engine/support/mount_list.h"
#include "engine/support/watch.h"
#include "engine/users_seen.h"

namespace VrelDR {

// A target whose bytes are files.
struct OwnedTree {
  std::string target_id;
  Fd dir;
  std::string file = {};           // the one in it that is all that counts; empty for all
  bool is_device_its_own = false;  // all with its number of a device is in it, as in a subvolume
};

// A use of a regular file, before it is known whose that is.
struct FileUse {
  TargetUser user;  // its path is found out
  dev_t device = 0;
  ino_t inode = 0;
  nlink_t links = 0;      // 0 when that is not known; of a file without a name there is no use
  std::string link = {};  // of /proc, by which the system finds the file; empty when there is none
  std::string path = {};  // where the system says that the file is, perhaps for somebody else
};

// Which files are whose, among targets of one volume. A path tells nothing for sure: the user may
// see the system otherwise, by a bind mount, a chroot or a mount namespace, and one file may have
// several names. So the system is asked for the file's name as this process sees it; where that
// does not decide, the file's number is looked for in the target's folders.
class OwnedFiles {
 public:
  // The volume's directory and the trees, which are in it, have to outlive the object.
  OwnedFiles(int volumeFd, const std::vector<OwnedTree>& trees, UsersSeen& seen)
      : volume_fd_(volumeFd), trees_(trees), seen_(seen) {}

  // Finds out where everything is. 0 or an errno.
  int Open();
  // The volume's file system in the words of the list of mounts.
  const std::string& GetDevice() const { return mount_.device; }
  // Whether the file can be one of the targets', as far as that can be told at once.
  bool MayHave(dev_t device, ino_t inode) const;

  // Finds out by the path of the use, which is all that is known, which file that is. False when
  // none is there in the volume.
  bool Identify(FileUse& use) const;
  // Takes down the user if the file is a target's.
  void Tell(FileUse use);
  // Takes down the mount if it shows something of a target; `viewer` is the process that sees it,
  // or nobody where this one does.
  void TellMount(const Mount& mount, const TargetUser& viewer);
  // Decides what is still open, by a walk through the targets in question.
  Status Finish(Watch& watch);

 private:
  struct Place {
    struct stat dir;
    struct stat file;    // of the one file
    std::string path;    // of the directory, as this process sees it
    std::string inside;  // the same from the top of the file system
  };
  using Number = std::pair<dev_t, ino_t>;

  bool IsAt(std::size_t tree, const std::string& path, const FileUse& use) const;
  bool IsElsewhere(const std::string& path, const FileUse& use) const;
  std::string FindPath(const FileUse& use) const;
  void Add(std::size_t tree, FileUse use, const std::string& path);
  Status Walk(std::size_t tree, int dirFd, const std::string& path, Watch& watch);

  int volume_fd_;
  const std::vector<OwnedTree>& trees_;
  UsersSeen& seen_;
  std::string path_;  // of the volume
  Mount mount_;       // that the volume is on
  std::vector<Place> places_;
  std::set<Number> others_;                      // files that are no target's
  std::map<Number, std::vector<FileUse>> open_;  // uses that are not decided, by the file
};

}  // namespace VrelDR
