#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <map>
#include <string>
#include <utility>

#include "../../status.h"
#include "attributes.h"
#include "watch.h"

namespace VrelDR::Local {

// Copies trees of files into one directory, the root, so that everything a program can tell of them
// stays the same: bytes, holes, modes, owners, times, extended attributes, symbolic links, hard
// links among the files that one object copies, pipes and device nodes. Sockets are left out:
// nobody listens at a copy. Links are never followed. Blocks are shared where the file system can.
//
// Nobody else may change the root meanwhile. What is removed from the source while it is copied may
// be missing from the copy. A failure names the file and leaves an incomplete copy. Each level of
// directories needs two descriptors, so a process that may have 1024 gets about 500 levels deep.
class TreeCopier {
 public:
  // `watch`, which may be null, is asked between files and between pieces of large ones; told to
  // stop, a copy ends with kErrStopped.
  TreeCopier(int rootFd, Strictness strictness, Watch* watch = nullptr)
      : root_fd_(rootFd), strictness_(strictness), watch_(watch) {}

  // Copies the entry `from`, whatever it is, to the new entry `toName` of the root. `path` names it
  // in messages.
  Status CopyEntry(const Entry& from, const std::string& path, const std::string& toName);

  // Copies what the directory `fromFd` holds, and its own attributes, into the root.
  Status CopyContent(int fromFd, const std::string& path);

 private:
  Status Copy(const Entry& from, const Entry& to);
  Status CopyChildren(int fromFd, int toFd);
  Status CopyDir(const Entry& from, const Entry& to);
  Status CopyFile(const Entry& from, const Entry& to);
  Status CopyLink(const Entry& from, const Entry& to);
  Status Finish(const Entry& from, const struct stat& st, const Entry& to);
  Status Fail(int error) const {
    return error == ECANCELED ? Watch::Stopped() : StatusOfErrno(error, from_path_);
  }

  int root_fd_;
  Strictness strictness_;
  Watch* watch_;
  std::string from_path_;  // of the entry in hand, for messages
  std::string to_path_;    // of its copy, below the root
  // Where the first copy of each file of several names is, below the root.
  std::map<std::pair<dev_t, ino_t>, std::string> linked_;
};

}  // namespace VrelDR::Local
