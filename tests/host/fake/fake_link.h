#pragma once

#include <string>

#include "engine/link.h"
#include "fake_store.h"

namespace VrelDR::Fake {

// From one volume of the engine to another, or within one. Refuses what it may, with
// kErrUnsupported: a shipment to a target that works, and one between targets that are no pair.
class FakeLink : public Link {
 public:
  FakeLink(Store from, Store to) : from_(std::move(from)), to_(std::move(to)) {}

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
  Status CheckPair(const TargetPlace& source, const TargetPlace& replica, Watcher& watcher) const;
  Status Bring(const TargetPlace& source, const std::string& snapId, const std::string& baseId,
               const TargetPlace& replica, Watcher& watcher) const;

  Store from_, to_;
};

}  // namespace VrelDR::Fake
