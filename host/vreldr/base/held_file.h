#pragma once

#include <unistd.h>

#include <utility>

#include "base/fd.h"

namespace VrelDR {

// Owns the descriptor of a file that this process has locked, and takes the lock back when it goes.
// Closing alone would not do: a process that is being started at that moment by another thread has
// a copy of the descriptor, and one that was forked off keeps it. There the object only closes it,
// as the lock is not that process'.
class HeldFile {
 public:
  // Takes back a lock of its kind.
  using Release = void (*)(int fd);

  HeldFile() = default;
  HeldFile(Fd file, Release release)
      : file_(std::move(file)), release_(release), holder_(getpid()) {}
  HeldFile(HeldFile&& other) noexcept = default;
  HeldFile& operator=(HeldFile&& other) noexcept {
    std::swap(file_, other.file_);
    std::swap(release_, other.release_);
    std::swap(holder_, other.holder_);
    return *this;
  }
  ~HeldFile() {
    if (file_ && holder_ == getpid()) release_(file_.Get());
  }

 private:
  Fd file_;
  Release release_ = nullptr;
  pid_t holder_ = 0;
};

}  // namespace VrelDR
