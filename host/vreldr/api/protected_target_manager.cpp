#include "vreldr/protected_target_manager.h"

#include "vreldr/target_manager.h"
#include "vreldr/utils.h"

namespace VrelDR::Replication {

namespace {

// Kinds differ in nothing here: the host keeps the targets of all of them alike.
class LocalTargetManager : public ProtectedTargetManager {
 public:
  explicit LocalTargetManager(DRProtectedTargetType type) : type_(type) {}

  bool DeleteTarget(const std::string& targetId) override {
    const TargetManager manager;
    TargetEntry entry;
    const bool found = manager.Get(targetId, entry);
    if (!found && manager.GetErrCode() == kErrNone) {
      SetErr(kErrTargetMissing, "target \"" + targetId + "\" does not exist");
      return false;
    }
    if (found && entry.target.GetType() != type_) {
      SetErr(kErrBadArgument,
             "target \"" + targetId + "\" is no " + Utils::ToString(type_) + "; name one that is");
      return false;
    }
    const bool removed = found && manager.Remove(targetId, true);
    SetErr(manager.GetErrCode(), manager.GetErrMsg());
    return removed;
  }

 private:
  DRProtectedTargetType type_;
};

}  // namespace

std::unique_ptr<ProtectedTargetManager> ProtectedTargetManager::Create(DRProtectedTargetType type) {
  if (type < kTargetLun || type > kTargetGuest) return nullptr;
  return std::make_unique<LocalTargetManager>(type);
}

}  // namespace VrelDR::Replication
