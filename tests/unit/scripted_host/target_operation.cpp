#include <vreldr/target_operation.h>

#include <algorithm>
#include <stdexcept>

#include "current.h"

namespace VrelDR {
namespace {

using scripted_host::Current;
using scripted_host::Record;
using scripted_host::TargetScript;

TargetScript Missing() {
  TargetScript script;
  script.exists = false;
  return script;
}

// Writes the call down and finds who answers it. `change` is what a call that succeeds does.
template <class Change>
bool Answer(const TargetOperation& op, const std::string& call, const std::string& arguments,
            const Change& change) {
  const std::string id = op.GetTarget().GetId();
  Record(call + "(" + id + (arguments.empty() ? "" : ", " + arguments) + ")");
  TargetScript missing = Missing();
  const auto found = Current().targets.find(id);
  TargetScript& target = found == Current().targets.end() ? missing : found->second;
  const auto failure = target.failures.find(call);
  if (failure != target.failures.end()) {
    op.SetErr(failure->second.code, failure->second.message);
    return false;
  }
  op.SetErr(0);
  return change(target);
}

auto Find(TargetScript& target, const std::string& snapId) {
  return std::find_if(target.snapshots.begin(), target.snapshots.end(),
                      [&](const auto& snapshot) { return snapshot.snap_id == snapId; });
}

std::string Text(bool value) {
  return value ? "true" : "false";
}

}  // namespace

std::string DRErrRecorder::GetErrCodeStr(int code) const {
  const auto found = Current().code_texts.find(code);
  return found == Current().code_texts.end() ? std::string() : found->second;
}

TargetOperation::TargetOperation(const Target& target) : target_(target) {
  Record("TargetOperation(" + target.GetId() + ", " + std::to_string(target.GetType()) + ")");
}

TargetOperation::TargetOperation(int type, const std::string& targetId)
    : TargetOperation(Target(targetId, type)) {}

bool TargetOperation::IsExisted() const {
  return Answer(*this, "IsExisted", "", [](TargetScript& target) { return target.exists; });
}

std::vector<Operation::Snapshot> TargetOperation::ListSnapshots() const {
  std::vector<Operation::Snapshot> snapshots;
  Answer(*this, "ListSnapshots", "", [&](TargetScript& target) {
    if (target.listed_counts.empty()) {
      snapshots = target.snapshots;
    } else {
      snapshots.resize(target.listed_counts.front());
      target.listed_counts.pop_front();
    }
    return true;
  });
  return snapshots;
}

bool TargetOperation::ListSnapshotIds(std::set<std::string>& snapIds) const {
  return Answer(*this, "ListSnapshotIds", "", [&](TargetScript& target) {
    for (const auto& snapshot : target.snapshots) snapIds.insert(snapshot.snap_id);
    return true;
  });
}

bool TargetOperation::IsSnapshotExisted(const std::string& snapId) const {
  return Answer(*this, "IsSnapshotExisted", snapId, [&](TargetScript& target) {
    return Find(target, snapId) != target.snapshots.end();
  });
}

Operation::Snapshot TargetOperation::GetSnapshot(const std::string& snapId) const {
  Operation::Snapshot snapshot;
  Answer(*this, "GetSnapshot", snapId, [&](TargetScript& target) {
    const auto found = Find(target, snapId);
    if (found != target.snapshots.end()) snapshot = *found;
    return found != target.snapshots.end();
  });
  return snapshot;
}

bool TargetOperation::TakeSnapshot(const Operation::SnapshotMeta& meta, std::string& snapId) const {
  const std::string arguments = "\"" + meta.description + "\", " + Text(meta.is_locked) + ", " +
                                Text(meta.is_app_consistent) + ", \"" + meta.taken_by + "\"";
  return Answer(*this, "TakeSnapshot", arguments, [&](TargetScript& target) {
    if (target.next.empty()) {
      throw std::logic_error("the script has no next snapshot for target " + target_.GetId());
    }
    target.snapshots.push_back(target.next.front());
    target.next.pop_front();
    target.snapshots.back().meta = meta;
    snapId = target.snapshots.back().snap_id;
    return true;
  });
}

bool TargetOperation::DeleteSnapshot(const std::string& snapId) const {
  return Answer(*this, "DeleteSnapshot", snapId, [&](TargetScript& target) {
    const auto found = Find(target, snapId);
    if (found == target.snapshots.end()) {
      SetErr(kErrSnapshotMissing);
      return false;
    }
    target.snapshots.erase(found);
    return true;
  });
}

bool TargetOperation::RestoreSnapshot(const std::string& snapId) const {
  return Answer(*this, "RestoreSnapshot", snapId, [&](TargetScript& target) {
    const bool found = Find(target, snapId) != target.snapshots.end();
    if (!found) SetErr(kErrSnapshotMissing);
    return found;
  });
}

bool TargetOperation::CloneSnapshot(const std::string& snapId, const std::string& uuid,
                                    std::string& cloneId) const {
  return Answer(*this, "CloneSnapshot", snapId + ", " + uuid, [&](TargetScript& target) {
    if (target.next_clones.empty()) {
      throw std::logic_error("the script has no next clone of target " + target_.GetId());
    }
    cloneId = target.next_clones.front();
    target.next_clones.pop_front();
    Current().targets[cloneId].exists = true;
    return true;
  });
}

}  // namespace VrelDR
