#include "groups/gsnap_check.h"

#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr char kRepair[] = "; see \"drgroupctl snapshot repair\"";

Failure BadRecords(const std::string& gsnapId, const std::string& problem) {
  return {ExitCode::kCatalogue, "group snapshot " + Quote(gsnapId) + problem + kRepair};
}

Failure NotUsable(const std::string& gsnapId, const std::string& targetId,
                  const SnapshotState& state) {
  const std::string advice = state.presence == Presence::kMissing ? kRepair : std::string();
  Failure failure(FromHostError(state.error),
                  "group snapshot " + Quote(gsnapId) + ": its snapshot of target " +
                      Quote(targetId) + " cannot be used, so nothing was begun: " + state.problem +
                      advice);
  failure.details["target_id"] = targetId;
  return failure;
}

}  // namespace

void CheckUsable(const VrelDRGroup::GsnapshotInfo& info) {
  if (info.target_snapshots.empty()) {
    throw BadRecords(info.gsnap_id, " is recorded without target snapshots");
  }
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    const std::string& targetId = each.target.GetId();
    if (!each.IsValid()) {
      throw BadRecords(info.gsnap_id, ": one of its records names no target snapshot");
    }
    const SnapshotState state = AskSnapshot(each.target, each.tsnap_id);
    if (state.presence != Presence::kPresent) throw NotUsable(info.gsnap_id, targetId, state);
    RequireVolume(RequireTarget(targetId).volume);
  }
}

}  // namespace drgroupctl
