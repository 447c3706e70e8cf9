#pragma once

#include <string>
#include <vector>

#include "base/fd.h"
#include "base/status.h"
#include "config/config.h"

// What there is of a host, for those who find one and those who make one.
namespace VrelHost {

using VrelDR::Status;

inline constexpr const char* kIdentityName = "node_id";
inline constexpr const char* kRecordsName = "replica.db";
// There while a host is being made: what else is there then is not finished.
inline constexpr const char* kMakingName = "host.making";

// What is in the state directory.
struct StateSight {
  bool has_dir = false;
  bool is_being_made = false;
  bool has_identity = false;    // a file of that name
  std::string node_id;          // what it says; empty when it is damaged
  bool has_records = false;     // a file of that name
  bool has_locks = false;       // of targets or plans
  bool has_side_files = false;  // of records that may have gone

  bool IsWhole() const { return !is_being_made && !node_id.empty() && has_records; }
  bool IsEmpty() const {
    return !is_being_made && !has_identity && !has_records && !has_locks && !has_side_files;
  }
};

// Looks at the state directory. A failure when it cannot be told what is there.
Status LookAtState(const std::string& dir, StateSight& sight);

// Held by whoever makes a host, until it goes: whoever has it sees no half of one.
Status LockState(const std::string& dir, VrelDR::Fd& lock);

struct Trace {
  std::string what;  // "identity", "records", "locks", or "volume" and its name
  std::string text;  // where, and what is to be said of it
};

// What the volumes show of a host; one that cannot be asked counts.
std::vector<Trace> TracesOnVolumes(const Config& config);
// What the state directory shows of one, with what is missing beside it.
std::vector<Trace> TracesInState(const std::string& dir, const StateSight& sight);

// Makes what is missing of the host, `node_id` being its identity when it has none; the caller has
// the lock. After a crash the next call goes on.
Status MakeHost(const std::string& dir, const std::string& nodeId);
// Says that the host is being made.
Status MarkMaking(const std::string& dir);

}  // namespace VrelHost
