#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace VrelDR::Local {

// The moment in which calls that come together get into one transaction of a btrfs: newcomers are
// shut out of the one that is running, all wait for the next, and that cannot close before the
// first one is on disk.
//
// Something has to be on its way to disk for that. It is of this class's own: extended attributes
// of small files in the area kCut of a volume, which stay there. Whoever removes them, or uses them
// for another window at the same time, does no harm.
class CommitWindow {
 public:
  // `ownFd` is of a volume's ".vreldr" on the file system, and stays open longer than this object.
  explicit CommitWindow(int ownFd) : own_fd_(ownFd) {}

  // Makes what Open needs: the files, and a thread. 0 or an errno.
  int Prepare(int files);
  // Returns when the window is open. The more files are changed, the longer it stays so. 0 or an
  // errno.
  int Open(int files);

 private:
  int Change(int files) const;
  // Makes whatever waits for the end of a transaction see one.
  void Push() const;
  void Watch(const std::stop_token& end);

  int own_fd_;
  std::mutex mutex_;
  std::condition_variable_any changed_;
  bool is_waiting_ = false;
  std::jthread pusher_;  // last: it uses the others
};

}  // namespace VrelDR::Local
