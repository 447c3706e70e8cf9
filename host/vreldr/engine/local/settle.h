#pragma once

#include <string>
#include <string_view>

#include "engine/local/write_back.h"

namespace VrelDR::Local {

// The kill points of settling a snapshot.
struct SettleSteps {
  std::string_view frozen, renamed;
};

// Whether what is below the top of a copy is read-only already, as far as it can be.
enum class Below { kLoose, kFixed };

// Makes the finished copy `name` in the directory `fromFd`, all of which is on disk, a snapshot in
// `toFd`, read-only where the system can do that, in two steps. After the first one it is there as
// a whole or not at all; of a subvolume something may stay behind in `fromFd`. `path` names the
// volume.
Status BeginSettling(int fromFd, const std::string& name, int toFd, const SettleSteps& steps,
                     const std::string& path, Below below);

// The second one: it is on disk, with all that was done in between. Also goes on where an earlier
// call was interrupted.
Status FinishSettling(int toFd, const std::string& name, WriteBack& writeBack,
                      const std::string& path);

}  // namespace VrelDR::Local
