#pragma once

#include <memory>
#include <string>

#include "vrelcore/export.h"
#include "vreldr/error.h"

namespace VrelDR::Operation {

// One target as replication handles it.
class VREL_API ProtectedTarget : public DRErrRecorder {
 public:
  // The object of a target, which need not exist; null for a number that is no kind of target. On
  // this host a target is found by its identifier alone, whatever `type` is.
  static std::unique_ptr<ProtectedTarget> CreateTarget(int type, const std::string& targetId);

  ~ProtectedTarget() override = default;

  // Releases the lock by which `locker` holds the snapshot against deletion, on this target. Fails
  // when it holds none.
  virtual bool ReleaseRetentionLock(const std::string& snapId, const std::string& locker) = 0;
  // Deletes the snapshot. Fails with kErrLocked while anybody holds it.
  virtual bool DeleteSnapshot(const std::string& snapId) = 0;
};

}  // namespace VrelDR::Operation
