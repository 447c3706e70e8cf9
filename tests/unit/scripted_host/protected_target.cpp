#include <vreldr/protected_target.h>

#include "current.h"
#include "text.h"

namespace VrelDR::Operation {
namespace {

using scripted_host::Call;
using scripted_host::Fails;
using scripted_host::Record;

class ScriptedTarget : public ProtectedTarget {
 public:
  explicit ScriptedTarget(const std::string& targetId) : target_id_(targetId) {}
  ~ScriptedTarget() override { Record(Call("~ProtectedTarget", target_id_)); }

  bool ReleaseRetentionLock(const std::string& snapId, const std::string& locker) override {
    return Answer(Call("ReleaseRetentionLock", target_id_, snapId, locker));
  }
  bool DeleteSnapshot(const std::string& snapId) override {
    return Answer(Call("ProtectedTarget.DeleteSnapshot", target_id_, snapId));
  }

 private:
  bool Answer(const std::string& call) const {
    Record(call);
    const auto* const failure = Fails(call);
    if (failure != nullptr) SetErr(failure->code, failure->message);
    return failure == nullptr;
  }

  const std::string target_id_;
};

}  // namespace

std::unique_ptr<ProtectedTarget> ProtectedTarget::CreateTarget(int type,
                                                               const std::string& targetId) {
  const std::string call = Call("CreateTarget", type, targetId);
  Record(call);
  if (Fails(call) != nullptr) return nullptr;
  return std::make_unique<ScriptedTarget>(targetId);
}

}  // namespace VrelDR::Operation
