#pragma once

#include <memory>

#include "engine/local/change_finder.h"

namespace VrelDR::Local {

// Finds changes by where the file system keeps the two files: what both have in the same blocks is
// the same. That holds for blocks, not for what anybody says of them, and so it is true of any two
// files of one file system that nobody writes to meanwhile. Blocks that the file system moves while
// they are looked at are seen, and not known.
//
// For XFS and btrfs, where a position of the disk means one thing; elsewhere nothing is known.
class ExtentChanges : public ChangeFinder {
 public:
  ExtentChanges();
  ~ExtentChanges() override;

  // Whether files in the directory `dirFd` share blocks and their changes can be found so.
  static bool CanTell(int dirFd);

  // Also not known: data that is in no blocks of its own (inline), of which a position tells too
  // little (compressed) or nothing (encrypted), or that is on an XFS's second device.
  int Find(const std::string& path, int baseFd, int snapshotFd, bool& isKnown,
           std::vector<Run>& changed) override;

 private:
  class Page;

  // Reads a page of each, from `start` on, as they are at one time. 0 or an errno: EAGAIN when they
  // do not stand still.
  int ReadBoth(int baseFd, int snapshotFd, std::uint64_t start, std::uint64_t end);

  std::unique_ptr<Page> base_, again_, snapshot_;
};

}  // namespace VrelDR::Local
