#pragma once

#include <vreldr/error.h>
#include <vreldr/snapshot.h>
#include <vreldr/target.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// Where this host keeps everything.
namespace OwnHost {

struct StoredSnapshot {
  VrelDR::Operation::Snapshot snapshot;
  std::string bytes;
};

struct StoredTarget {
  VrelDR::Target target;
  std::string bytes;
  std::vector<StoredSnapshot> snapshots;  // oldest first
  // Of the newest snapshot that there ever was: no two have the same time.
  std::uint32_t last_time = 0;
};

// How a call ends.
struct Outcome {
  int code = VrelDR::kErrNone;
  std::string message;
};

Outcome NoSuchTarget(const std::string& targetId);
Outcome NoSuchSnapshot(const StoredTarget& target, const std::string& snapId);

// The snapshot, or the end of the list.
std::vector<StoredSnapshot>::iterator FindSnapshot(StoredTarget& target, const std::string& snapId);

// Targets by their identifiers. Whoever looks at them has the lock, which is held for a whole call:
// a call that takes its time would hold a lock of its target alone instead, and others that want
// to change that target would end with kErrBusy.
struct Memory {
  std::mutex mutex;
  std::map<std::string, StoredTarget> targets;
  std::uint64_t last_sequence = 0;
};
Memory& TheMemory();

// Does the work of one call with the lock held, and records in `recorder` how it ended. True when
// that was well. Nothing is thrown to the caller, as the contract wants it.
bool Call(const VrelDR::DRErrRecorder& recorder, const std::function<Outcome(Memory&)>& work);
// The same on one target, which has to be there.
bool CallOn(const VrelDR::DRErrRecorder& recorder, const std::string& targetId,
            const std::function<Outcome(StoredTarget&)>& work);

}  // namespace OwnHost
