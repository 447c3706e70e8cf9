#include "foundation/foundation.h"

#include "foundation/durable.h"
#include "foundation/records.h"
#include "foundation/traces.h"
#include "vreldrcore/uuid.h"

namespace VrelHost {

namespace {

using VrelDR::Quoted;

bool Take(const StateSight& sight, HostStanding& standing) {
  if (sight.IsWhole()) standing = {true, sight.node_id};
  return sight.IsWhole();
}

Status NoHost(const Config& config, const std::vector<Trace>& traces) {
  std::string text =
      "the state directory " + Quoted(config.state_dir) + " has no host in order, but";
  const char* separator = " ";
  for (const Trace& each : traces) {
    text += separator + each.what + " " + each.text;
    separator = ", ";
  }
  return {VrelDR::kErrStore,
          text + "; put back what is missing from a backup, correct \"state_dir\" in " +
              Quoted(config.file) +
              " or mount the volume, and only if that host is gone run \"drgroupctl host init\""};
}

// Good when there is no trace of a host.
Status CheckNoTraces(const Config& config, const StateSight& sight) {
  std::vector<Trace> traces = TracesInState(config.state_dir, sight);
  if (traces.empty()) traces = TracesOnVolumes(config);
  return traces.empty() ? Status() : NoHost(config, traces);
}

// Records of an earlier version, to which the identity came with the first plan.
bool HasYetToBeIdentified(const std::string& dir, const StateSight& sight) {
  return sight.has_records && !sight.has_identity && NeverHadIdentity(dir + "/" + kRecordsName);
}

// With the state directory locked: nobody is making a host, or has begun to use one, meanwhile.
Status FindLocked(const Config& config, Making making, HostStanding& standing) {
  const std::string& dir = config.state_dir;
  VrelDR::Fd lock;
  StateSight sight;
  Status status = LockState(dir, lock);
  if (status.IsOk()) status = LookAtState(dir, sight);
  if (!status.IsOk() || Take(sight, standing)) return status;
  if (!sight.is_being_made && !HasYetToBeIdentified(dir, sight)) {
    status = CheckNoTraces(config, sight);
    if (!status.IsOk() || making == Making::kNever) return status;
  }
  status = MakeHost(dir, VrelDRCore::GenerateUUID());
  if (status.IsOk()) status = LookAtState(dir, sight);
  if (!status.IsOk() || Take(sight, standing)) return status;
  return CheckNoTraces(config, sight);
}

}  // namespace

Status FindHost(const Config& config, Making making, HostStanding& standing) {
  standing = {};
  StateSight sight;
  Status status = LookAtState(config.state_dir, sight);
  if (!status.IsOk() || Take(sight, standing)) return status;
  if (sight.has_dir) return FindLocked(config, making, standing);
  // Nothing is made, not even the directory, where a host may not be made.
  status = CheckNoTraces(config, sight);
  if (status.IsOk() && making == Making::kNever) return {};
  if (status.IsOk()) {
    status = MakeDirs(config.state_dir);
  } else {
    // Perhaps somebody has made it between the two looks, and used a volume since.
    const Status now = LookAtState(config.state_dir, sight);
    if (!now.IsOk() || !sight.has_dir) return status;
    status = {};
  }
  return status.IsOk() ? FindLocked(config, making, standing) : status;
}

}  // namespace VrelHost
