#include "host/host.h"

#include <vreldr/host_state.h>
#include <vreldr/target_operation.h>
#include <vreldr/utils.h>
#include <vreldrcore/json.h>

#include <algorithm>
#include <set>

#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

std::string HostMessage(const VrelDRCore::ErrRecorder& recorder) {
  const Json::Value& message = recorder.GetErrMsg();
  const std::string text = VrelDRCore::JsonUtil::AsText(message);
  if (!text.empty()) return Printable(text);
  // An operation of the library hands on the host's codes without their texts.
  const std::string code = VrelDR::DRErrRecorder().GetErrCodeStr(recorder.GetErrCode());
  std::string said = code.empty() ? "error " + std::to_string(recorder.GetErrCode()) : code;
  if (!message.isNull()) said += " " + VrelDRCore::JsonUtil::ToString(message);
  return Printable(said);
}

void ThrowHostError(const VrelDRCore::ErrRecorder& recorder) {
  throw Failure(FromHostError(recorder.GetErrCode()), HostMessage(recorder));
}

std::string StateDirectory() {
  const VrelDR::HostState state;
  std::string dir;
  if (!state.GetDirectory(dir)) ThrowHostError(state);
  return dir;
}

std::vector<VrelDR::VolumeInfo> ListVolumes() {
  const VrelDR::VolumeManager manager;
  std::vector<VrelDR::VolumeInfo> volumes;
  if (!manager.List(volumes)) ThrowHostError(manager);
  return volumes;
}

VrelDR::VolumeInfo FindVolume(const std::string& name) {
  const std::vector<VrelDR::VolumeInfo> volumes = ListVolumes();
  const auto found = std::find_if(volumes.begin(), volumes.end(),
                                  [&](const auto& each) { return each.name == name; });
  if (found != volumes.end()) return *found;
  throw Failure(ExitCode::kNotFound,
                "there is no volume " + Quote(name) +
                    ": name one that \"drgroupctl volume list\" shows, or configure it");
}

VrelDR::VolumeInfo RequireVolume(const std::string& name) {
  VrelDR::VolumeInfo found = FindVolume(name);
  if (found.problem.empty()) return found;
  throw Failure(ExitCode::kStorage,
                "volume " + Quote(name) + " cannot be used: " + Printable(found.problem));
}

std::vector<VrelDR::TargetEntry> ListTargets() {
  const VrelDR::TargetManager manager;
  std::vector<VrelDR::TargetEntry> targets;
  if (!manager.List(targets)) ThrowHostError(manager);
  return targets;
}

bool FindTarget(const std::string& targetId, VrelDR::TargetEntry& entry) {
  const VrelDR::TargetManager manager;
  if (manager.Get(targetId, entry)) return true;
  if (manager.GetErrCode() != 0) ThrowHostError(manager);
  return false;
}

VrelDR::TargetEntry RequireTarget(const std::string& targetId) {
  VrelDR::TargetEntry entry;
  if (!FindTarget(targetId, entry)) {
    throw Failure(ExitCode::kNotFound,
                  "there is no target " + Quote(targetId) +
                      ": name one that \"drgroupctl target list\" shows, or create it");
  }
  return entry;
}

std::vector<VrelDR::Target> RequireTargets(const std::vector<std::string>& ids) {
  std::set<std::string> seen;
  std::vector<VrelDR::Target> targets;
  for (const std::string& id : ids) {
    if (!seen.insert(id).second) {
      throw Failure(ExitCode::kUsage, "target " + Quote(id) + " is named twice: name it once");
    }
    targets.push_back(RequireTarget(id).target);
  }
  return targets;
}

std::vector<VrelDR::TargetRemains> ListRemains() {
  const VrelDR::TargetManager manager;
  std::vector<VrelDR::TargetRemains> remains;
  if (!manager.ListRemains(remains)) ThrowHostError(manager);
  return remains;
}

void RequirePlace(const std::string& targetId, VrelDR::PlaceUse use) {
  const VrelDR::TargetManager manager;
  if (!manager.CheckPlace(targetId, use)) ThrowHostError(manager);
}

Json::Value ExistsValue(const VrelDR::TargetEntry& entry) {
  return entry.is_existed || entry.problem.empty() ? Json::Value(entry.is_existed) : Json::Value();
}

Json::Value SnapshotCountValue(const VrelDR::TargetEntry& entry) {
  return entry.problem.empty() ? Json::Value(Json::UInt64(entry.snapshots)) : Json::Value();
}

std::string TypeName(int type) {
  return VrelDR::Utils::ToString(static_cast<VrelDR::DRProtectedTargetType>(type));
}

int TypeNumber(const std::string& name) {
  for (int type = VrelDR::kTargetLun; type <= VrelDR::kTargetGuest; ++type) {
    if (TypeName(type) == name) return type;
  }
  return 0;
}

std::vector<std::string> TypeNames() {
  return {TypeName(VrelDR::kTargetLun), TypeName(VrelDR::kTargetShare),
          TypeName(VrelDR::kTargetGuest)};
}

SnapshotState AskSnapshot(const VrelDR::Target& target, const std::string& snapId) {
  const VrelDR::TargetOperation operation(target);
  const VrelDR::Operation::Snapshot snapshot = operation.GetSnapshot(snapId);
  if (!snapshot.snap_id.empty()) return {Presence::kPresent, {}, snapshot.path, 0};
  if (operation.GetErrCode() == 0) {
    return {Presence::kMissing,
            "the target has no such snapshot any more",
            {},
            VrelDR::kErrSnapshotMissing};
  }
  // Removed for good, or only out of reach? The host's records know.
  const VrelDR::TargetManager manager;
  VrelDR::TargetEntry entry;
  if (operation.GetErrCode() == VrelDR::kErrTargetMissing && !manager.Get(target.GetId(), entry) &&
      manager.GetErrCode() == 0) {
    return {
        Presence::kMissing, "the target does not exist any more", {}, VrelDR::kErrTargetMissing};
  }
  return {Presence::kUnknown, HostMessage(operation), {}, operation.GetErrCode()};
}

}  // namespace drgroupctl
