#pragma once

#include <memory>
#include <string>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/target.h"

namespace VrelDR::Replication {

// What can be done to the targets of one kind.
class VREL_API ProtectedTargetManager : public DRErrRecorder {
 public:
  // The manager of a kind of target; null for a number that is none.
  static std::unique_ptr<ProtectedTargetManager> Create(DRProtectedTargetType type);

  ~ProtectedTargetManager() override = default;

  // Removes a target of this kind with its snapshots and all its bytes. A failure records a code of
  // ErrCode and a message.
  virtual bool DeleteTarget(const std::string& targetId) = 0;
};

}  // namespace VrelDR::Replication
