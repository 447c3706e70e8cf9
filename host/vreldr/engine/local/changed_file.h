#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "base/fd.h"
#include "base/status.h"
#include "engine/local/data_listener.h"
#include "engine/local/file_read.h"

namespace VrelDR::Local {

// Whoever makes a file of a snapshot that arrives by changes.
struct FileMaker {
  std::function<Status(int)> fail;             // what an errno about the file in hand means
  std::function<Status(std::uint64_t)> reach;  // it is made up to there; whether to go on
  DataListener* listener = nullptr;            // hears all of its data; may be null
};

// A file of a snapshot that arrives by changes, being made: of the base's file, by sharing its
// blocks and writing into the copy what differs, or by copying in one pass what does not and
// writing what does; or of nothing.
class ChangedFile {
 public:
  // `maker` stays longer than this object.
  ChangedFile(const FileMaker& maker, Fd file, std::uint64_t size)
      : maker_(maker), file_(std::move(file)), size_(size) {}

  // One of these comes first. The file is empty, or has its bytes up to `from` already, as one that
  // was begun in the same way.
  Status BeginNew(std::uint64_t from);
  // On a base's file of `baseSize` bytes; `isShared` says that files of this file system share
  // blocks. Where this one does not it is copied all the same, and `canGoOn` is false: it has to be
  // begun anew when this is interrupted.
  Status BeginOnBase(Fd base, std::uint64_t baseSize, bool isShared, std::uint64_t from,
                     bool& canGoOn);

  // In ascending order.
  Status Data(std::uint64_t offset, std::span<const char> bytes);
  Status Hole(std::uint64_t offset, std::uint64_t length);
  Status End();

  int GetFd() const { return file_.Get(); }

 private:
  // What is told next begins there: what is before that is of the base, or a hole.
  Status GoTo(std::uint64_t offset);
  Status CopyPiece(std::uint64_t begin, std::uint64_t end);
  bool IsWithin(std::uint64_t offset, std::uint64_t length) const {
    return offset >= at_ && length <= size_ && offset <= size_ - length;
  }
  Status Fail(int error) const { return maker_.fail(error); }

  const FileMaker& maker_;
  Fd file_;
  std::uint64_t size_;
  Fd base_;  // to be copied from; nothing to copy without
  std::uint64_t base_size_ = 0;
  DataFinder base_data_{-1};
  bool has_blocks_ = false;    // shares those of the base
  std::uint64_t at_ = 0;       // made up to there
  std::uint64_t started_ = 0;  // on its way to disk up to there
  std::vector<char> piece_;
};

// Lets `listener` hear a part of a file. `fail` says what an errno means.
Status Hear(int fd, std::uint64_t begin, std::uint64_t end, DataListener& listener,
            const std::function<Status(int)>& fail);

}  // namespace VrelDR::Local
