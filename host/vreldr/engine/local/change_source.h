#pragma once

#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "base/fd.h"
#include "engine/local/change_finder.h"
#include "engine/local/change_progress.h"
#include "engine/local/change_sink.h"
#include "engine/local/data_listener.h"
#include "engine/local/file_read.h"

namespace VrelDR::Local {

// The end of a shipment by changes from which the bytes come: goes through a snapshot and an older
// one of the same target, both of which nobody changes, and tells a sink what the snapshot is. Of a
// file that the base has too only what `finder` finds is read; where that does not know, the two
// files are compared.
//
// Each level of directories needs two descriptors.
class ChangeSource {
 public:
  // `path` names the snapshot in messages. `listener`, which may be null, hears what is told of
  // files. All stay longer than this object.
  ChangeSource(int snapshotFd, int baseFd, const std::string& path, ChangeFinder& finder,
               DataListener* listener, ChangeProgress& progress)
      : snapshot_fd_(snapshotFd),
        base_fd_(baseFd),
        path_(path),
        finder_(finder),
        listener_(listener),
        progress_(progress) {}

  // Once.
  Status Tell(ChangeSink& sink);
  // Why it failed, when that was on this end and a call of the system; else 0.
  int GetError() const { return error_; }

 private:
  struct File;

  Status TellContent(int dirFd, int baseFd);
  Status TellEntry(int dirFd, int baseFd, const std::string& name);
  Status TellDirectory(int dirFd, int baseFd, const std::string& name);
  Status TellOther(int dirFd, const std::string& name, const struct stat& found);
  Status TellFile(int dirFd, int baseFd, const std::string& name);
  Status TellData(const File& file, const std::vector<Run>& runs);
  Status TellRun(int fd, DataFinder& finder, std::uint64_t begin, std::uint64_t end);
  Status TellPieces(int fd, std::uint64_t begin, std::uint64_t end);
  // Tells it as another name of a file that was told, if it is one, or notes it; `isTold`.
  Status TellName(const struct stat& st, const std::string& name, bool& isTold);
  int OpenBase(int baseFd, const std::string& name, File& file) const;
  int FindChanges(const File& file, std::vector<Run>& runs);
  // Whether what ends now was told to the sink by an earlier call.
  bool IsBefore() const { return ended_ < point_.ended; }
  // After something was told whole, or skipped.
  Status End(std::uint64_t size);
  Status Fail(int error);

  int snapshot_fd_, base_fd_;
  std::string path_;
  ChangeFinder& finder_;
  DataListener* listener_;
  ChangeProgress& progress_;
  ChangeSink* sink_ = nullptr;
  ChangePoint point_;
  std::uint64_t ended_ = 0;
  std::string below_;                    // the path of the entry in hand, below the top
  std::map<ino_t, std::string> linked_;  // where a file of several names was told first
  std::vector<char> piece_;
  EntryAttributes attributes_;
  int error_ = 0;
};

}  // namespace VrelDR::Local
