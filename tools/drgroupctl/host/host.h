#pragma once

#include <json/value.h>
#include <vreldr/snapshot.h>
#include <vreldr/target.h>
#include <vreldr/target_manager.h>
#include <vreldr/volume.h>
#include <vreldrcore/err_recorder.h>

#include <string>
#include <vector>

// The host's volumes, targets and snapshots, with failures thrown.
namespace drgroupctl {

// The one line that tells what `recorder` recorded.
std::string HostMessage(const VrelDRCore::ErrRecorder& recorder);

[[noreturn]] void ThrowHostError(const VrelDRCore::ErrRecorder& recorder);

std::string StateDirectory();

std::vector<VrelDR::VolumeInfo> ListVolumes();
// Throws when there is no such volume.
VrelDR::VolumeInfo FindVolume(const std::string& name);
// Throws also when it cannot be used.
VrelDR::VolumeInfo RequireVolume(const std::string& name);

std::vector<VrelDR::TargetEntry> ListTargets();
// False when the host has no such target.
bool FindTarget(const std::string& targetId, VrelDR::TargetEntry& entry);
VrelDR::TargetEntry RequireTarget(const std::string& targetId);
// Targets that are named, with their kinds, each named once.
std::vector<VrelDR::Target> RequireTargets(const std::vector<std::string>& ids);
// Throws unless that can be done to the target's place.
void RequirePlace(const std::string& targetId, VrelDR::PlaceUse use);

// What is left of targets whose removal has begun.
std::vector<VrelDR::TargetRemains> ListRemains();

// Whether the target's bytes are there, and how many snapshots it has, as values of a report: null
// when the host cannot find out.
Json::Value ExistsValue(const VrelDR::TargetEntry& entry);
Json::Value SnapshotCountValue(const VrelDR::TargetEntry& entry);

// "lun", "share", "guest", and back; 0 for another word.
std::string TypeName(int type);
int TypeNumber(const std::string& name);
std::vector<std::string> TypeNames();

// Whether a target snapshot exists: kUnknown when the host cannot tell, as for a volume that is not
// mounted. `problem` says why it is not kPresent, `error` is the host's code for that.
enum class Presence { kPresent, kMissing, kUnknown };
struct SnapshotState {
  Presence presence = Presence::kUnknown;
  std::string problem;
  std::string path;  // where its bytes can be read
  int error = 0;
};
SnapshotState AskSnapshot(const VrelDR::Target& target, const std::string& snapId);

}  // namespace drgroupctl
