#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VrelDR::Local {

// A run of bytes of a file.
struct Run {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  bool operator==(const Run&) const = default;
};

// Tells where a file of a snapshot may differ from the file of the same path in an older one of the
// same target, without reading either.
class ChangeFinder {
 public:
  virtual ~ChangeFinder() = default;

  // `path` is below the top of both, whose files are open for reading. Appends ascending, disjoint
  // runs to `changed`: outside of them the bytes up to the shorter size are the same, and what is
  // beyond that is the longer one's alone. `isKnown` is false when that cannot be told, and
  // `changed` then means nothing. 0 or an errno.
  virtual int Find(const std::string& path, int baseFd, int snapshotFd, bool& isKnown,
                   std::vector<Run>& changed) = 0;
};

}  // namespace VrelDR::Local
