#include "engine/local/subvolume.h"

#include <btrfsutil.h>
#include <linux/btrfs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "engine/local/directory.h"
#include "engine/local/freeze.h"

namespace VrelDR::Local {

namespace {

// The library keeps errno for all its errors but those that are none of the system.
int ErrnoOf(enum btrfs_util_error result) {
  switch (result) {
    case BTRFS_UTIL_OK:
      return 0;
    case BTRFS_UTIL_ERROR_NO_MEMORY:
      return ENOMEM;
    case BTRFS_UTIL_ERROR_NOT_BTRFS:
    case BTRFS_UTIL_ERROR_NOT_SUBVOLUME:
    case BTRFS_UTIL_ERROR_INVALID_ARGUMENT:
      return EINVAL;
    default:
      return errno != 0 ? errno : EIO;
  }
}

}  // namespace

bool IsBtrfs(int fd) {
  struct statfs info;
  return fstatfs(fd, &info) == 0 && info.f_type == BTRFS_SUPER_MAGIC;
}

bool IsSubvolume(int dirFd) {
  return IsBtrfs(dirFd) && btrfs_util_is_subvolume_fd(dirFd) == BTRFS_UTIL_OK;
}

int MakeSubvolume(int parentFd, const std::string& name) {
  return ErrnoOf(btrfs_util_create_subvolume_fd(parentFd, name.c_str(), 0, nullptr, nullptr));
}

int SnapshotSubvolume(int sourceFd, int parentFd, const std::string& name, Access access) {
  const int flags = access == Access::kReadOnly ? BTRFS_UTIL_CREATE_SNAPSHOT_READ_ONLY : 0;
  return ErrnoOf(
      btrfs_util_create_snapshot_fd2(sourceFd, parentFd, name.c_str(), flags, nullptr, nullptr));
}

int SnapshotAtOnce(int sourceFd, int parentFd, const std::string& name) {
  struct btrfs_ioctl_vol_args_v2 args = {};
  if (name.size() >= sizeof args.name) return ENAMETOOLONG;
  args.fd = sourceFd;
  args.flags = BTRFS_SUBVOL_RDONLY;
  name.copy(args.name, name.size());
  return ioctl(parentFd, BTRFS_IOC_SNAP_CREATE_V2, &args) < 0 ? errno : 0;
}

int ReadSnapshotTransaction(int dirFd, std::uint64_t& transaction) {
  struct btrfs_ioctl_get_subvol_info_args info = {};
  if (ioctl(dirFd, BTRFS_IOC_GET_SUBVOL_INFO, &info) < 0) return errno;
  transaction = info.otransid;
  return transaction != 0 ? 0 : EIO;
}

int BeginCommit(int fd) {
  std::uint64_t transaction = 0;
  return ioctl(fd, BTRFS_IOC_START_SYNC, &transaction) < 0 ? errno : 0;
}

int SetAccess(int dirFd, Access access) {
  return ErrnoOf(btrfs_util_set_subvolume_read_only_fd(dirFd, access == Access::kReadOnly));
}

bool IsReadOnly(int dirFd) {
  bool readOnly = false;
  return btrfs_util_get_subvolume_read_only_fd(dirFd, &readOnly) == BTRFS_UTIL_OK && readOnly;
}

int SetReceived(int dirFd, int sourceFd) {
  struct btrfs_util_subvolume_info source;
  if (const int error = ErrnoOf(btrfs_util_subvolume_info_fd(sourceFd, 0, &source))) return error;
  // What was received is known by the name that its first original had, however often it was sent.
  const bool wasReceived =
      std::any_of(std::begin(source.received_uuid), std::end(source.received_uuid),
                  [](int b) { return b != 0; });
  struct btrfs_ioctl_received_subvol_args args = {};
  std::memcpy(args.uuid, wasReceived ? source.received_uuid : source.uuid, sizeof args.uuid);
  args.stransid = source.ctransid;
  return ioctl(dirFd, BTRFS_IOC_SET_RECEIVED_SUBVOL, &args) == 0 ? 0 : errno;
}

int ListNested(int dirFd, std::vector<std::string>& paths) {
  struct btrfs_util_subvolume_iterator* made = nullptr;
  enum btrfs_util_error result = btrfs_util_create_subvolume_iterator_fd(dirFd, 0, 0, &made);
  if (result != BTRFS_UTIL_OK) return ErrnoOf(result);
  const std::unique_ptr<btrfs_util_subvolume_iterator,
                        decltype(&btrfs_util_destroy_subvolume_iterator)>
      each(made, btrfs_util_destroy_subvolume_iterator);
  for (;;) {
    char* path = nullptr;
    result = btrfs_util_subvolume_iterator_next(each.get(), &path, nullptr);
    if (result == BTRFS_UTIL_ERROR_STOP_ITERATION) return 0;
    if (result != BTRFS_UTIL_OK) return ErrnoOf(result);
    paths.emplace_back(path);
    std::free(path);
  }
}

int RemoveSubvolume(int parentFd, const std::string& name) {
  int error = ErrnoOf(btrfs_util_delete_subvolume_fd(parentFd, name.c_str(), 0));
  if (error != EPERM) return error;
  // The user may have made its top immutable, which nobody can take back while it is read-only.
  const Fd dir = OpenDir(parentFd, name);
  if (!dir) return errno;
  error = SetAccess(dir.Get(), Access::kWritable);
  if (error == 0) error = ClearGuards(dir.Get());
  if (error != 0) return error;
  return ErrnoOf(btrfs_util_delete_subvolume_fd(parentFd, name.c_str(), 0));
}

}  // namespace VrelDR::Local
