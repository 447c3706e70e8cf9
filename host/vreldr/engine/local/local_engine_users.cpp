// Who uses the bytes of targets.
#include <cerrno>

#include "engine/local/content.h"
#include "engine/local/directory.h"
#include "engine/local/local_engine.h"
#include "engine/local/subvolume.h"
#include "engine/support/file_users.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine

Status LocalEngine::FindUsers(const std::vector<TargetPlace>& targets, UsersSeen& seen,
                              Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(watcher);
  std::vector<OwnedTree> trees;
  for (const TargetPlace& each : targets) {
    if (status.IsOk()) status = dir_.Open(each, watcher).status;
    if (!status.IsOk()) return status;
    Fd dir = OpenDir(volume.Get(), each.locator);
    if (!dir && (errno == ENOENT || errno == ENOTDIR)) continue;
    // What is mounted over it is somebody else's, and hides the target from everybody.
    if (!dir && errno == EXDEV) return dir_.CheckUnmounted(volume.Get(), each.locator);
    if (!dir) return StatusOfErrno(errno, dir_.PathOf(each));
    const bool isSubvolume = IsSubvolume(dir.Get());
    const std::string file = each.type == kTargetLun ? kDiskImage : "";
    trees.push_back({each.id, std::move(dir), file, isSubvolume});
  }
  if (!status.IsOk()) return status;
  Watch watch(watcher);
  return FindFileUsers(volume.Get(), trees, seen, watch);
}

}  // namespace VrelDR
