#pragma once

#include <functional>
#include <string>

#include "target/host.h"

namespace VrelDR {

// Makes a target of the host with its record, whole or not at all: `makeBytes` has the volume's
// engine make its bytes. A plan whose DR copy the target is comes with it. Creations and removals
// that crashes interrupted are finished first.
Status CreateTarget(
    Host& host, const Target& target, const std::string& volume,
    const std::function<Status(const StorageEngine&, const TargetPlace&)>& makeBytes,
    const DRPlan* plan = nullptr);

// Removes the target's bytes and records; the caller has its lock and has marked its record.
Status ForgetTarget(Host& host, const TargetRow& row);

// The same for one that callers have known. A failure says that the target is not whole any more:
// it stays marked, and whoever removes it again, or makes another target, finishes that.
Status RemoveMarkedTarget(Host& host, const HostTarget& target);

}  // namespace VrelDR
