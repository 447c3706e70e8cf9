#pragma once

#include "engine/link.h"
#include "engine/local/volume_dir.h"

namespace VrelDR {

// From one directory of this node to another. Between volumes on btrfs a snapshot goes as a stream;
// otherwise, and when something of it has arrived already, what differs is compared and copied. The
// two targets know nothing of each other.
class LocalLink : public Link {
 public:
  LocalLink(Local::VolumeDir from, Local::VolumeDir to)
      : from_(std::move(from)), to_(std::move(to)) {}

  Status Check(const TargetPlace& source, Watcher& watcher) const override;
  Status Attach(const TargetPlace& source, const TargetPlace& replica,
                Watcher& watcher) const override;
  Status Detach(const TargetPlace& source, const TargetPlace& replica,
                Watcher& watcher) const override;
  Status Ship(const TargetPlace& source, const std::string& snapId, const std::string& baseId,
              const TargetPlace& replica, Watcher& watcher) const override;
  Status Drop(const TargetPlace& replica, const std::string& keepSnapId,
              Watcher& watcher) const override;

 private:
  Local::VolumeDir from_, to_;
};

}  // namespace VrelDR
