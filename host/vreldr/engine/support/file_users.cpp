#include "engine/support/file_users.h"

#include "engine/support/loop_users.h"
#include "engine/support/process_users.h"

namespace VrelDR {

Status FindFileUsers(int volumeFd, const std::vector<OwnedTree>& trees, UsersSeen& seen,
                     Watch& watch) {
  if (trees.empty()) return {};
  OwnedFiles files(volumeFd, trees, seen);
  if (const int error = files.Open()) return StatusOfErrno(error, "/proc/self");
  FindLoopUsers(files, seen);
  FindSwapUsers(files);
  Status status = FindProcessUsers(files, seen, watch);
  return status.IsOk() ? files.Finish(watch) : status;
}

}  // namespace VrelDR
