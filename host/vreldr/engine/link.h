#pragma once

#include <optional>
#include <string>

#include "base/status.h"
#include "config/config.h"
#include "engine/engine.h"

namespace VrelDR {

// A volume at one end of a link.
struct LinkEnd {
  const VrelHost::VolumeConfig& volume;
  std::optional<VolumeIdentity> identity;  // expected of it, see StorageEngine::Expect
};

// What needs two volumes: replication from one to the other. A link is for one direction, is made
// without touching either, and reaches an end only in calls that need that one: it is no engine's
// affair what the other end is. Its calls keep what StorageEngine's keep.
class Link {
 public:
  virtual ~Link() = default;

  // Whether the target can be replicated over the link: kErrUnsupported with the reason otherwise.
  // It is asked before a pair is made, and changes nothing.
  virtual Status Check(const TargetPlace& source, Watcher& watcher) const = 0;
  // Makes the two a pair, for the links of both directions: a replica that was created and demoted,
  // and its source. What a crash leaves of a pair one of which is gone hinders nothing.
  virtual Status Attach(const TargetPlace& source, const TargetPlace& replica,
                        Watcher& watcher) const = 0;
  // They are none any more; both keep their bytes, their snapshots and their parts. None is fine.
  // Both ends are tried though one cannot be reached, and the call fails for it then.
  virtual Status Detach(const TargetPlace& source, const TargetPlace& replica,
                        Watcher& watcher) const = 0;
  // Makes the replica have the snapshot too: read-only, the same bytes, there as a whole or not at
  // all. Only what differs from `baseId`, a snapshot that both have, is sent; everything when it is
  // empty. A call that was stopped, failed or crashed leaves what has arrived where only the next
  // call for the same snapshot finds it, and that goes on from there. Others may change both
  // targets meanwhile, with all calls of their engines that leave alone the base, the snapshot and
  // the part that the target has; there is no other shipment to the replica.
  virtual Status Ship(const TargetPlace& source, const std::string& snapId,
                      const std::string& baseId, const TargetPlace& replica,
                      Watcher& watcher) const = 0;
  // Removes what Ship left of shipments to the replica that did not come to their end, but not that
  // of `keepSnapId`, which may be empty. Does without the source.
  virtual Status Drop(const TargetPlace& replica, const std::string& keepSnapId,
                      Watcher& watcher) const = 0;
};

}  // namespace VrelDR
