#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "host/owned_fd.h"

namespace drgroupctl {

enum class Change { kAdded, kRemoved, kChanged };

// Tells the runs of bytes in which two files differ, whole blocks of 4096 bytes, in order and none
// next to another; what one of them has beyond the end of the other differs. Reads both, but for
// what is a hole in both. `tell` answers whether it wants more. 0 or an errno.
int CompareFiles(int oldFd, int newFd,
                 const std::function<bool(std::uint64_t offset, std::uint64_t length)>& tell);

// What differs between two trees: paths that are in one of them, and what else is not the same of
// those in both: type, size, contents, target (of a link), device, mode, owner (and group), times
// (of modification). The contents of files of one size and time of modification are compared only
// when that is asked for. Extended attributes are not looked at, sockets are left out, as snapshots
// have none, no link is followed, and nothing gone into that is mounted there. What is kept in
// memory is the names of the directories from the top to the one in hand.
class TreeDiff {
 public:
  // Of a path below the top, "." for the top itself; `what` is empty unless it changed.
  using Tell = std::function<void(const std::string& path, Change change, const std::string& what)>;
  using Warn = std::function<void(const std::string& text)>;

  TreeDiff(bool readsAll, Tell tell, Warn warn)
      : reads_all_(readsAll), tell_(std::move(tell)), warn_(std::move(warn)) {}

  // Both are open for reading; the paths name them in messages. Throws what cannot be read.
  void Compare(int oldFd, const std::string& oldPath, int newFd, const std::string& newPath);

 private:
  struct Pair;
  void CompareContent(int oldFd, int newFd, const std::string& below);
  void CompareEntry(int oldFd, int newFd, const std::string& name, const std::string& below);
  void Descend(const Pair& pair, const std::string& path);
  std::string WhatChanged(const Pair& pair, const std::string& path) const;
  bool HaveSameBytes(const Pair& pair, const std::string& path) const;

  bool reads_all_;
  Tell tell_;
  Warn warn_;
  std::string old_path_;
  std::string new_path_;
};

}  // namespace drgroupctl
