#include <vreldr/protected_target_manager.h>

#include "current.h"

namespace VrelDR::Replication {
namespace {

using scripted_host::Current;
using scripted_host::Record;

class ScriptedManager : public ProtectedTargetManager {
 public:
  explicit ScriptedManager(DRProtectedTargetType type) : type_(std::to_string(type)) {}
  ~ScriptedManager() override { Record("~ProtectedTargetManager(" + type_ + ")"); }

  bool DeleteTarget(const std::string& targetId) override {
    Record("DeleteTarget(" + type_ + ", " + targetId + ")");
    auto& targets = Current().targets;
    const auto found = targets.find(targetId);
    if (found == targets.end()) {
      SetErr(kErrTargetMissing);
      return false;
    }
    const auto failure = found->second.failures.find("DeleteTarget");
    if (failure != found->second.failures.end()) {
      SetErr(failure->second.code, failure->second.message);
      return false;
    }
    targets.erase(found);
    SetErr(kErrNone);
    return true;
  }

 private:
  const std::string type_;
};

}  // namespace

std::unique_ptr<ProtectedTargetManager> ProtectedTargetManager::Create(DRProtectedTargetType type) {
  Record("ProtectedTargetManager(" + std::to_string(type) + ")");
  if (type < kTargetLun || type > kTargetGuest || Current().without_manager.count(type) != 0) {
    return nullptr;
  }
  return std::make_unique<ScriptedManager>(type);
}

}  // namespace VrelDR::Replication
