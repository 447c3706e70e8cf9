#pragma once

#include "base/fd.h"
#include "engine/engine.h"
#include "foundation/volume_identity.h"

namespace VrelDR::Local {

// The engine's own directory of a volume has one directory for each area, and in it one for each
// target.
using VrelHost::kOwnDir;
inline constexpr const char* kSnapshots = "snapshots";
inline constexpr const char* kTmp = "tmp";
inline constexpr const char* kIncoming = "incoming";
inline constexpr const char* kFrozen = "frozen";
inline constexpr const char* kDigests = "digests";

// The area that has no directories of targets: what cuts change on purpose; see commit_window.h.
inline constexpr const char* kCut = "cut";

// Whether an entry of that name in a target's directory of kSnapshots would be a snapshot.
inline bool IsSnapshotName(const std::string& name) {
  return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos;
}

// In a target's directory of kSnapshots: the name of a snapshot of a cut that was not taken up. No
// identifier begins with a dot.
inline std::string CutName(const std::string& snapId) {
  return ".cut." + snapId;
}

// In a target's directory of kTmp: the bytes of a target that is being made, and those that are to
// take a target's place.
inline constexpr const char* kNewTarget = "target";
inline constexpr const char* kRestored = "restored";

// Opens <own>/<area>/<target>. False with errno set on a failure.
Fd OpenArea(int ownFd, const char* area, const TargetPlace& target);

// The same, making what is missing. What is made is on disk once what is put into it has been
// synced. `isMade` tells whether the target's directory was.
Fd OpenOrMakeArea(int ownFd, const char* area, const TargetPlace& target, bool* isMade = nullptr);

// Removes <own>/<area>/<target> with all in it, subvolumes right in it, too, durably. 0 or an
// errno; nothing there is fine.
int RemoveArea(int ownFd, const char* areaName, const TargetPlace& target);

// The same of one that is expected to be empty: that is not waited for to be on disk, as an empty
// directory that a power cut brings back is in nobody's way.
int RemoveEmptyArea(int ownFd, const char* areaName, const TargetPlace& target);

}  // namespace VrelDR::Local
