#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/local/change_finder.h"
#include "engine/local/digest_file.h"

namespace VrelDR::Local {

// Finds what differs by the digests that were kept when two snapshots were made, and reads nothing
// of their files. It tells what they were then, whatever somebody has made of their bytes since.
class DigestChanges : public ChangeFinder {
 public:
  // Both of one size of chunks; they stay longer than this object.
  DigestChanges(const DigestFile& base, const DigestFile& snapshot)
      : base_(base), snapshot_(snapshot) {}

  int Find(const std::string& path, int baseFd, int snapshotFd, bool& isKnown,
           std::vector<Run>& changed) override;

 private:
  const DigestFile& base_;
  const DigestFile& snapshot_;
};

}  // namespace VrelDR::Local
