#include "engine/local/digest_changes.h"

#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "engine/local/digest_compare.h"

namespace VrelDR::Local {

namespace {

// Whether the file has the size that it had when its digests were kept.
int HasSize(int fd, const DigestCursor& digests, bool& has) {
  struct stat st;
  if (fstat(fd, &st) != 0) return errno;
  has = static_cast<std::uint64_t>(st.st_size) == digests.GetSize();
  return 0;
}

}  // namespace

int DigestChanges::Find(const std::string& path, int baseFd, int snapshotFd, bool& isKnown,
                        std::vector<Run>& changed) {
  isKnown = false;
  std::optional<DigestCursor> before;
  std::optional<DigestCursor> now;
  int error = base_.Find(path, before);
  if (error == 0) error = snapshot_.Find(path, now);
  if (error != 0 || !before || !now) return error;
  if (base_.GetChunkSize() != snapshot_.GetChunkSize()) return 0;
  bool wasSo = false;
  bool isSo = false;
  error = HasSize(baseFd, *before, wasSo);
  if (error == 0) error = HasSize(snapshotFd, *now, isSo);
  if (error != 0 || !wasSo || !isSo) return error;
  isKnown = true;
  return FindDifferences(*before, *now, base_.GetChunkSize(), changed);
}

}  // namespace VrelDR::Local
