#pragma once

#include <string>
#include <string_view>

namespace VrelDR::Local {

// The kill points of settling a snapshot.
struct SettleSteps {
  std::string_view synced, frozen, renamed;
};

// Makes the finished copy `name` in the directory `fromFd` a snapshot in `toFd`: on disk, read-only
// where the system can do that, and there as a whole or not at all. Of a subvolume something may
// stay behind in `fromFd`. 0 or an errno.
int Settle(int fromFd, const std::string& name, int toFd, const SettleSteps& steps);

// Does what Settle does last, in case that it was interrupted before: `name` is in `toFd` already.
int FinishSettling(int toFd, const std::string& name);

}  // namespace VrelDR::Local
