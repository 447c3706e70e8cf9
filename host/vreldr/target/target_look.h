#pragma once

#include <string>
#include <vector>

#include "target/host.h"

namespace VrelDR {

// What is asked of a target, and of one of its snapshots unless `snap_id` is empty, and the answer.
struct TargetLook {
  const TargetRow* row = nullptr;  // in any state; null for one that is not recorded
  std::string target_id;
  std::string snap_id;
  Status status;              // good when the target is whole and has bytes, as HostTarget finds it
  bool has_snapshot = false;  // its bytes are there; known when the status is good
  std::string snapshot_path;  // of them, then
};

// Looks at many targets of an open host, and asks each volume once.
void LookAtTargets(Host& host, std::vector<TargetLook>& looks);

}  // namespace VrelDR
