#pragma once

#include <mutex>
#include <string>

#include "base/status.h"

namespace VrelDR::Local {

// A file system that a call writes to. That bytes did not reach the disk is told once to each
// descriptor that was open by then, and perhaps to none that is opened later. So this one is opened
// before the call's first write, all its syncs go through it, and once one has failed none
// succeeds any more.
class WriteBack {
 public:
  // `fd` is of the file system, and stays open longer than this object. `path` names the volume.
  WriteBack(int fd, const std::string& path) : fd_(fd), path_(path) {}
  WriteBack(const WriteBack&) = delete;
  WriteBack& operator=(const WriteBack&) = delete;

  // Brings all that was written to disk. Good only when nothing written since the descriptor was
  // opened is lost. Any thread may call it.
  Status Sync();
  // What the syncs so far found.
  Status GetStatus() const;

 private:
  int fd_;
  std::string path_;
  mutable std::mutex mutex_;
  Status status_;
};

// Lets the system forget what it keeps in memory of the files below the directory `dirFd`, all of
// which was synced: what is read next comes from the disk. After a write that failed the two may
// differ. 0 or an errno.
int ForgetCached(int dirFd);

}  // namespace VrelDR::Local
