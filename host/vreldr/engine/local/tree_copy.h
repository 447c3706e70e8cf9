#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/fd.h"
#include "base/status.h"
#include "engine/local/attributes.h"
#include "engine/local/flags.h"
#include "engine/support/watch.h"

namespace VrelDR::Local {

class DigestWriter;

// Copies trees of files into one directory, the root, so that everything a program can tell of them
// stays the same: bytes, holes, modes, owners, times, extended attributes, symbolic links, hard
// links among the files that one object copies, pipes and device nodes. Sockets are left out:
// nobody listens at a copy. Links are never followed. Blocks are shared where the file system can.
// What becomes of the flags of inodes is said by FlagsOf.
//
// What is mounted inside a source is not copied. A copy fails at such a place, and in a target at a
// nested subvolume, unless it is told to leave out what is mounted: something empty is then in its
// place.
//
// Nobody else may change the root meanwhile. What is removed from the source while it is copied may
// be missing from the copy. A failure names the file and leaves an incomplete copy. Each level of
// directories needs two descriptors, so a process that may have 1024 gets about 500 levels deep.
class TreeCopier {
 public:
  // What the source is, and so what its inodes' flags and the record of them are to the copy.
  enum class FlagsOf {
    kForeign,   // not of this engine: a copy has no flags
    kTarget,    // they are written down in the copy
    kSnapshot,  // those that are written down are set, but not those of the top
    kArchived,  // the copy is a part of a snapshot, too: what is written down stays so
  };

  // `watch` is asked between files and between pieces of large ones; told to
  // stop, a copy ends with kErrStopped.
  TreeCopier(int rootFd, Strictness strictness, FlagsOf flagsOf, Watch& watch)
      : root_fd_(rootFd), strictness_(strictness), flags_of_(flagsOf), watch_(watch) {}

  void LeaveOutMounts() { leaves_out_mounts_ = true; }
  // Of a target that is frozen: what its user has made immutable, by paths below its top. It must
  // outlive the copy.
  void SetImmutable(const std::set<std::string>* paths) { immutable_ = paths; }
  // Tells it the bytes of all files of the copy. It must outlive the copy.
  void TellDigests(DigestWriter* digests) { digests_ = digests; }

  // Copies what `from`, of O_PATH, is, whatever that is, to the new entry `toName` of the root.
  // `path` names it in messages.
  Status CopyEntry(Fd from, const std::string& path, const std::string& toName);

  // Copies what the directory `fromFd` holds, and its own attributes, into the root.
  Status CopyContent(int fromFd, const std::string& path);

  // The flags of the top of a snapshot that was copied.
  unsigned GetTopFlags() const { return top_flags_; }

 private:
  Status CopyChild(int fromFd, int toFd, const std::string& name);
  Status Copy(Fd from, const Entry& to);
  Status CopyChildren(int fromFd, int toFd);
  Status CopyDir(Fd from, const struct stat& st, const Entry& to);
  Status CopyFile(int fromFd, const struct stat& st, const Entry& to);
  Status CopyLink(int fromFd, const struct stat& st, const Entry& to);
  Status MakeEmpty(int fromFd, int toFd, const std::string& name);
  Status Finish(int fromFd, const struct stat& st, const Entry& to);
  // `fromFd` and `toFd` are open for reading.
  int CopyFlags(int fromFd, int toFd, bool hasSeveralNames);
  int CopyTopFlags(int fromFd, int toFd);
  unsigned FlagsOfSource(int fromFd) const;
  Status Fail(int error) const;

  int root_fd_;
  Strictness strictness_;
  FlagsOf flags_of_;
  Watch& watch_;
  bool leaves_out_mounts_ = false;
  const std::set<std::string>* immutable_ = nullptr;
  DigestWriter* digests_ = nullptr;
  unsigned top_flags_ = 0;
  bool have_flags_ = false;  // something below the top has
  std::string from_path_;    // of the entry in hand, for messages
  std::string to_path_;      // of its copy, below the root
  // Where the first copy of each file of several names is, below the root.
  std::map<std::pair<dev_t, ino_t>, std::string> linked_;
  // Flags of files that may get more names yet, which some of them would prevent.
  std::vector<std::pair<std::string, unsigned>> later_;
};

}  // namespace VrelDR::Local
