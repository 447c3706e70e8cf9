#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/local/change_finder.h"
#include "engine/local/digest_file.h"

namespace VrelDR::Local {

// Appends the runs of chunks whose digests differ, up to the shorter size: what is beyond that
// belongs to the longer file alone. Both are of that size of chunks and at their beginning. 0 or an
// errno.
int FindDifferences(DigestCursor& one, DigestCursor& other, std::uint32_t chunkSize,
                    std::vector<Run>& runs);

// Where a file is not the same.
struct DigestDifference {
  std::string path;
  std::uint64_t offset = 0;
};

// Whether two snapshots have the same files with the same bytes: the first difference that is
// found, or none. 0 or an errno: EBADMSG when they cannot be compared.
int CompareDigests(const DigestFile& one, const DigestFile& other,
                   std::optional<DigestDifference>& difference);

}  // namespace VrelDR::Local
