// Targets and their snapshots.
#include <vreldr/protected_target.h>
#include <vreldr/protected_target_manager.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <ctime>

#include "memory.h"

namespace VrelDR {

using OwnHost::Call;
using OwnHost::CallOn;
using OwnHost::FindSnapshot;
using OwnHost::Memory;
using OwnHost::NoSuchSnapshot;
using OwnHost::NoSuchTarget;
using OwnHost::Outcome;
using OwnHost::StoredSnapshot;
using OwnHost::StoredTarget;

namespace {

bool IsKind(int type) {
  return type >= kTargetLun && type <= kTargetGuest;
}

}  // namespace

TargetOperation::TargetOperation(const Target& target) : target_(target) {}

TargetOperation::TargetOperation(int type, const std::string& targetId) : target_(targetId, type) {}

bool TargetOperation::IsExisted() const {
  // That a target does not exist is an answer and no error.
  bool exists = false;
  return Call(*this,
              [&](Memory& memory) {
                exists = memory.targets.count(target_.GetId()) != 0;
                return Outcome();
              }) &&
         exists;
}

std::vector<Operation::Snapshot> TargetOperation::ListSnapshots() const {
  std::vector<Operation::Snapshot> snapshots;
  CallOn(*this, target_.GetId(), [&](StoredTarget& target) {
    for (const StoredSnapshot& each : target.snapshots) snapshots.push_back(each.snapshot);
    return Outcome();
  });
  return snapshots;
}

bool TargetOperation::ListSnapshotIds(std::set<std::string>& snapIds) const {
  return CallOn(*this, target_.GetId(), [&](StoredTarget& target) {
    for (const StoredSnapshot& each : target.snapshots) snapIds.insert(each.snapshot.snap_id);
    return Outcome();
  });
}

bool TargetOperation::IsSnapshotExisted(const std::string& snapId) const {
  return !GetSnapshot(snapId).snap_id.empty();
}

Operation::Snapshot TargetOperation::GetSnapshot(const std::string& snapId) const {
  Operation::Snapshot snapshot;
  CallOn(*this, target_.GetId(), [&](StoredTarget& target) {
    const auto found = FindSnapshot(target, snapId);
    if (found == target.snapshots.end()) return NoSuchSnapshot(target, snapId);
    snapshot = found->snapshot;
    return Outcome();
  });
  return snapshot;
}

bool TargetOperation::TakeSnapshot(const Operation::SnapshotMeta& meta, std::string& snapId) const {
  return Call(*this, [&](Memory& memory) {
    const auto found = memory.targets.find(target_.GetId());
    if (found == memory.targets.end()) return NoSuchTarget(target_.GetId());
    StoredTarget& target = found->second;
    StoredSnapshot taken;
    taken.bytes = target.bytes;
    taken.snapshot.meta = meta;
    taken.snapshot.sequence = memory.last_sequence + 1;
    taken.snapshot.snap_id = "snap-" + std::to_string(taken.snapshot.sequence);
    // Group snapshots are named after these times: within one second they go ahead of the clock.
    taken.snapshot.create_time =
        std::max(static_cast<std::uint32_t>(std::time(nullptr)), target.last_time + 1);
    target.snapshots.push_back(taken);
    target.last_time = taken.snapshot.create_time;
    ++memory.last_sequence;
    snapId = taken.snapshot.snap_id;
    return Outcome();
  });
}

bool TargetOperation::DeleteSnapshot(const std::string& snapId) const {
  return CallOn(*this, target_.GetId(), [&](StoredTarget& target) {
    const auto found = FindSnapshot(target, snapId);
    if (found == target.snapshots.end()) return NoSuchSnapshot(target, snapId);
    target.snapshots.erase(found);
    return Outcome();
  });
}

bool TargetOperation::RestoreSnapshot(const std::string& snapId) const {
  return CallOn(*this, target_.GetId(), [&](StoredTarget& target) {
    const auto found = FindSnapshot(target, snapId);
    if (found == target.snapshots.end()) return NoSuchSnapshot(target, snapId);
    target.bytes = found->bytes;
    return Outcome();
  });
}

bool TargetOperation::CloneSnapshot(const std::string& snapId, const std::string& uuid,
                                    std::string& cloneId) const {
  return Call(*this, [&](Memory& memory) {
    const auto source = memory.targets.find(target_.GetId());
    if (source == memory.targets.end()) return NoSuchTarget(target_.GetId());
    const auto found = FindSnapshot(source->second, snapId);
    if (found == source->second.snapshots.end()) return NoSuchSnapshot(source->second, snapId);
    StoredTarget clone;
    clone.target = Target(uuid, source->second.target.GetType());
    clone.bytes = found->bytes;
    if (!memory.targets.emplace(uuid, std::move(clone)).second) {
      return Outcome{kErrExists, "there is a target \"" + uuid + "\" already"};
    }
    cloneId = uuid;
    return Outcome();
  });
}

namespace Replication {

namespace {

// All kinds are alike here.
class Manager : public ProtectedTargetManager {
 public:
  bool DeleteTarget(const std::string& targetId) override {
    return Call(*this, [&](Memory& memory) {
      return memory.targets.erase(targetId) == 1 ? Outcome() : NoSuchTarget(targetId);
    });
  }
};

}  // namespace

std::unique_ptr<ProtectedTargetManager> ProtectedTargetManager::Create(DRProtectedTargetType type) {
  if (!IsKind(type)) return nullptr;
  return std::make_unique<Manager>();
}

}  // namespace Replication

namespace Operation {

namespace {

class HostTarget : public ProtectedTarget {
 public:
  explicit HostTarget(std::string targetId) : target_id_(std::move(targetId)) {}

  bool ReleaseRetentionLock(const std::string& snapId, const std::string& locker) override {
    SetErr(kErrBadArgument, "\"" + locker + "\" holds no snapshot \"" + snapId + "\"");
    return false;  // without plans nobody holds any
  }

  bool DeleteSnapshot(const std::string& snapId) override {
    const TargetOperation operation(0, target_id_);
    const bool done = operation.DeleteSnapshot(snapId);
    SetErr(operation.GetErrCode(), operation.GetErrMsg());
    return done;
  }

 private:
  std::string target_id_;
};

}  // namespace

std::unique_ptr<ProtectedTarget> ProtectedTarget::CreateTarget(int type,
                                                               const std::string& targetId) {
  if (!IsKind(type)) return nullptr;
  return std::make_unique<HostTarget>(targetId);
}

}  // namespace Operation

}  // namespace VrelDR
