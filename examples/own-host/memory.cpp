#include "memory.h"

#include <algorithm>
#include <exception>

#include "own_host.h"

namespace OwnHost {

Memory& TheMemory() {
  static Memory memory;
  return memory;
}

Outcome NoSuchTarget(const std::string& targetId) {
  return {VrelDR::kErrTargetMissing, "target \"" + targetId + "\" does not exist"};
}

Outcome NoSuchSnapshot(const StoredTarget& target, const std::string& snapId) {
  return {VrelDR::kErrSnapshotMissing,
          "target \"" + target.target.GetId() + "\" has no snapshot \"" + snapId + "\""};
}

std::vector<StoredSnapshot>::iterator FindSnapshot(StoredTarget& target,
                                                   const std::string& snapId) {
  return std::find_if(target.snapshots.begin(), target.snapshots.end(),
                      [&](const StoredSnapshot& each) { return each.snapshot.snap_id == snapId; });
}

bool Call(const VrelDR::DRErrRecorder& recorder, const std::function<Outcome(Memory&)>& work) {
  Outcome outcome;
  try {
    Memory& memory = TheMemory();
    const std::lock_guard<std::mutex> lock(memory.mutex);
    outcome = work(memory);
  } catch (const std::exception& failure) {
    outcome = {VrelDR::kErrNotRun, failure.what()};
  }
  recorder.SetErr(outcome.code,
                  outcome.message.empty() ? Json::Value() : Json::Value(outcome.message));
  return outcome.code == VrelDR::kErrNone;
}

bool CallOn(const VrelDR::DRErrRecorder& recorder, const std::string& targetId,
            const std::function<Outcome(StoredTarget&)>& work) {
  return Call(recorder, [&](Memory& memory) {
    const auto found = memory.targets.find(targetId);
    return found == memory.targets.end() ? NoSuchTarget(targetId) : work(found->second);
  });
}

bool MakeTarget(const VrelDR::Target& target, const std::string& bytes) {
  Memory& memory = TheMemory();
  const std::lock_guard<std::mutex> lock(memory.mutex);
  StoredTarget stored;
  stored.target = target;
  stored.bytes = bytes;
  return memory.targets.emplace(target.GetId(), std::move(stored)).second;
}

bool Write(const std::string& targetId, const std::string& bytes) {
  return CallOn(VrelDR::DRErrRecorder(), targetId, [&](StoredTarget& target) {
    target.bytes = bytes;
    return Outcome();
  });
}

bool Read(const std::string& targetId, std::string& bytes) {
  return CallOn(VrelDR::DRErrRecorder(), targetId, [&](StoredTarget& target) {
    bytes = target.bytes;
    return Outcome();
  });
}

}  // namespace OwnHost
