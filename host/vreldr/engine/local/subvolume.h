#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VrelDR::Local {

// Subvolumes of btrfs. Each call that changes something returns 0 or an errno; what it did is on
// disk once the file system has been synced.

bool IsBtrfs(int fd);
// Whether the open directory is the top of a subvolume.
bool IsSubvolume(int dirFd);
int MakeSubvolume(int parentFd, const std::string& name);
enum class Access { kReadOnly, kWritable };
// Makes `name` in `parentFd` a snapshot of the subvolume that `sourceFd` is: of one instant, there
// as a whole or not at all.
int SnapshotSubvolume(int sourceFd, int parentFd, const std::string& name, Access access);
// The same, read-only, by the one call of the system alone. It comes back when the transaction that
// has the snapshot is on disk.
int SnapshotAtOnce(int sourceFd, int parentFd, const std::string& name);
// In which transaction the subvolume `dirFd` was made a snapshot: all that were made in the same
// one are of one instant. 0, or an errno; a number that means nothing is an error.
int ReadSnapshotTransaction(int dirFd, std::uint64_t& transaction);
// Shuts newcomers out of the transaction that is running, and lets it go to disk.
int BeginCommit(int fd);
// Lets nobody change what is in the subvolume `dirFd`, root included; or lets them again.
int SetAccess(int dirFd, Access access);
bool IsReadOnly(int dirFd);
// Lets "btrfs receive" take the writable subvolume `dirFd`, which holds the same as the read-only
// one `sourceFd` of another volume, for one that was received from there.
int SetReceived(int dirFd, int sourceFd);
// Appends the paths of the subvolumes below the subvolume `dirFd`, as seen from it.
int ListNested(int dirFd, std::vector<std::string>& paths);
// Removes a subvolume, read-only or not; ENOTEMPTY when others are nested in it. For that to be on
// disk it is enough to sync the directory `parentFd`, as with other entries that are removed.
int RemoveSubvolume(int parentFd, const std::string& name);

}  // namespace VrelDR::Local
