#include "engine/local/commit_window.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "base/fd.h"
#include "engine/local/area.h"
#include "engine/local/directory.h"
#include "engine/local/subvolume.h"

namespace VrelDR::Local {

namespace {

// So much that a leaf of the file system's trees holds only a few of them.
constexpr std::size_t kChangeBytes = 3000;
constexpr const char* kAttribute = "user.vreldr.change";

// An empty subvolume, and a snapshot of it that is there for a moment. One of a process that was
// killed in that moment is in the way of the next, which removes it.
constexpr const char* kEmpty = "empty";
constexpr const char* kPushed = "pushed";

// The system only wakes the thread that ends transactions. Has that just been ending one, it misses
// the call and sleeps on, for half a minute as a rule.
constexpr std::chrono::milliseconds kPatience(100);

}  // namespace

int CommitWindow::Prepare(int files) {
  if (const int error = Change(files)) return error;
  const Fd dir = OpenDir(own_fd_, kCut);
  if (!dir) return errno;
  const int error = MakeSubvolume(dir.Get(), kEmpty);
  if (error != 0 && error != EEXIST) return error;
  pusher_ = std::jthread([this](const std::stop_token& end) { Watch(end); });
  return 0;
}

int CommitWindow::Open(int files) {
  if (const int error = Change(files)) return error;
  const auto tell = [this](bool isWaiting) {
    {
      const std::lock_guard lock(mutex_);
      is_waiting_ = isWaiting;
    }
    changed_.notify_one();
  };
  tell(true);
  const int error = BeginCommit(own_fd_);
  tell(false);
  return error;
}

int CommitWindow::Change(int files) const {
  const Fd dir = OpenOrMakeDir(own_fd_, kCut);
  if (!dir) return errno;
  std::string value = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
  value.resize(kChangeBytes, '.');
  for (int i = 0; i < files; ++i) {
    const Fd file(openat(dir.Get(), std::to_string(i).c_str(),
                         O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file && errno == ENOENT) return 0;  // whoever removes the directory changes something too
    if (!file || fsetxattr(file.Get(), kAttribute, value.data(), value.size(), 0) != 0)
      return errno;
  }
  return 0;
}

void CommitWindow::Push() const {
  const Fd dir = OpenDir(own_fd_, kCut);
  const Fd empty = dir ? OpenDir(dir.Get(), kEmpty) : Fd();
  constexpr int kTries = 3;
  for (int i = 0; empty && i < kTries; ++i) {
    const int error = SnapshotSubvolume(empty.Get(), dir.Get(), kPushed, Access::kWritable);
    (void)RemoveSubvolume(dir.Get(), kPushed);
    if (error == 0) return;
  }
  (void)syncfs(own_fd_);  // takes as long as all that is to be written does
}

void CommitWindow::Watch(const std::stop_token& end) {
  std::unique_lock lock(mutex_);
  while (changed_.wait(lock, end, [this] { return is_waiting_; })) {
    while (!changed_.wait_for(lock, end, kPatience, [this] { return !is_waiting_; })) {
      if (end.stop_requested()) return;
      lock.unlock();
      Push();
      lock.lock();
    }
  }
}

}  // namespace VrelDR::Local
