#pragma once

#include <mutex>
#include <string>

#include "engine/local/change_sink.h"

namespace VrelDR::Local {

// How much of a snapshot that arrives by changes is on disk. It stands in a file beside what has
// arrived, is there before anything of that is, and says no more than what a sync has brought to
// disk before: what it says needs not be compared again. Without it, what has arrived came some
// other way.
class ChangeMark {
 public:
  // In the directory `incomingFd` of the replica, for the snapshot made from that base.
  ChangeMark(int incomingFd, const std::string& snapId, const std::string& baseId);

  // The name of the file, of a snapshot.
  static std::string NameOf(const std::string& snapId);

  // Looks for one of this snapshot and this base; one that means nothing, or something else, is
  // none. 0 or an errno.
  int Read(bool& isThere);
  // Says, durably, that nothing is on disk. 0 or an errno.
  int Begin();
  // Removes it, durably; none is fine. 0 or an errno.
  static int Remove(int incomingFd, const std::string& snapId);

  // Up to where all has been written, if not synced; what is on disk at first. Any thread may call
  // these two.
  void Reach(const ChangePoint& point);
  ChangePoint GetReached() const;
  // Says that it is on disk up to there, as a sync that began later has found. A failure leaves
  // what was said before.
  void Keep(const ChangePoint& point);

 private:
  int Write(const std::string& name, const ChangePoint& point) const;

  int incoming_fd_;
  std::string name_, base_id_;
  mutable std::mutex mutex_;
  ChangePoint reached_;
  ChangePoint kept_;  // of the one thread that keeps
};

}  // namespace VrelDR::Local
