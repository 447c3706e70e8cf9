// Which volume this is.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/directory.h"
#include "engine/local/local_engine.h"
#include "foundation/durable.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine

namespace {

using VrelHost::kIdentityFile;

// An identity that is being written.
constexpr const char* kNewIdentity = "volume.json.new";

// Whether nothing is in our own directory but what an interrupted marking, cuts, or targets that
// are gone, leave there. 0 or an errno.
int LookIntoOwn(int ownFd, bool& empty) {
  std::vector<std::string> names;
  int error = ListDir(ownFd, names);
  for (const std::string& each : names) {
    if (error != 0 || !empty) break;
    if (each == kNewIdentity || each == kCut) continue;
    std::vector<std::string> below;
    const bool isArea = each == kSnapshots || each == kTmp || each == kIncoming || each == kDigests;
    const Fd area = isArea ? OpenDir(ownFd, each) : Fd();
    if (area) error = ListDir(area.Get(), below);
    empty = area && below.empty();
  }
  return error;
}

int LookIntoVolume(int volumeFd, int ownFd, bool& empty) {
  std::vector<std::string> names;
  const int error = ListDir(volumeFd, names);
  empty = error == 0 && std::all_of(names.begin(), names.end(), [](const std::string& each) {
            return each == kOwnDir || each == "lost+found";
          });
  return error == 0 && empty && ownFd != -1 ? LookIntoOwn(ownFd, empty) : error;
}

int WriteFile(int dirFd, const std::string& name, const std::string& text) {
  const Fd file(openat(dirFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!file) return errno;
  return VrelHost::WriteAndSync(file.Get(), text);
}

// Puts the identity in its place. EEXIST when there is one and it is not to be made anew.
int PlaceIdentity(int ownFd, const VolumeIdentity& identity, bool anew) {
  unlinkat(ownFd, kNewIdentity, 0);  // of a call that was interrupted
  int error = WriteFile(ownFd, kNewIdentity, ToText(identity));
  KillPoint(kVolumeWritten);
  if (error == 0) {
    const int result = anew ? renameat(ownFd, kNewIdentity, ownFd, kIdentityFile)
                            : linkat(ownFd, kNewIdentity, ownFd, kIdentityFile, 0);
    if (result != 0) error = errno;
  }
  KillPoint(kVolumePlaced);
  unlinkat(ownFd, kNewIdentity, 0);
  return error;
}

}  // namespace

Status LocalEngine::Look(VolumeSight& sight, Watcher& watcher) const {
  sight = {};
  Fd volume;
  Status status = dir_.OpenAny(volume, watcher);
  if (!status.IsOk()) return status;
  int error = VrelHost::IdentifyFileSystem(volume.Get(), sight.file_system);
  const Fd own = error == 0 ? OpenDir(volume.Get(), kOwnDir) : Fd();
  if (error == 0 && !own && errno != ENOENT) error = errno;
  if (own) {
    sight.has_own = true;
    VolumeIdentity identity;
    const int found = VrelHost::ReadIdentity(own.Get(), identity);
    sight.has_identity = found != ENOENT;
    if (found == 0) sight.identity = std::move(identity);
    if (found != 0 && found != ENOENT && found != EBADMSG) error = found;
  }
  if (error == 0) error = LookIntoVolume(volume.Get(), own.Get(), sight.is_empty);
  return error == 0 ? Status() : StatusOfErrno(error, dir_.GetPath());
}

Status LocalEngine::Mark(const VolumeIdentity& identity, bool anew, Watcher& watcher) const {
  Fd volume;
  Status status = dir_.OpenAny(volume, watcher);
  if (!status.IsOk()) return status;
  const std::string path = dir_.GetPath() + "/" + kOwnDir;
  const Fd own = OpenOrMakeDir(volume.Get(), kOwnDir);
  if (!own) return StatusOfErrno(errno, path);
  KillPoint(kVolumeOwnMade);
  constexpr int kMostTries = 300;
  Watch watch(watcher);
  status = LockDir(own.Get(), path, kMostTries, watch);
  if (!status.IsOk()) return status;
  int error = PlaceIdentity(own.Get(), identity, anew);
  const bool placed = error == 0;
  if (error == EEXIST) {
    VolumeIdentity found;
    error = VrelHost::ReadIdentity(own.Get(), found);
    if (error == EBADMSG || (error == 0 && ToText(found) != ToText(identity))) {
      return {kErrExists, Quoted(path + "/" + kIdentityFile) + " is there already"};
    }
  }
  // Also of a file that was there: whoever placed it may not have come to this.
  if (error == 0) {
    error = VrelHost::SyncFd(own.Get());
    if (error == 0) error = VrelHost::SyncFd(volume.Get());
    // The failure is told only once: nobody may take the file for one that is on disk.
    if (error != 0 && placed && !anew) unlinkat(own.Get(), kIdentityFile, 0);
  }
  if (error != 0) return StatusOfErrno(error, path);
  KillPoint(kVolumeMarked);
  return {};
}

}  // namespace VrelDR
