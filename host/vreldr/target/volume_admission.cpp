#include "target/volume_admission.h"

#include <algorithm>

#include "base/kill_point.h"
#include "vreldrcore/uuid.h"

namespace VrelDR {

namespace {

// Of a volume without an identity: by what is recorded on it, and whether that is there.
Status JudgeUnidentified(Host& host, Volume& volume, const VolumeSight& sight,
                         Admission& admission) {
  std::vector<TargetRow> rows;
  Status status = host.store->ListTargetsOfAnyState(rows);
  if (!status.IsOk()) return status;
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&](const TargetRow& each) { return each.volume != volume.name; }),
             rows.end());
  if (rows.empty()) {
    admission.kind = sight.is_empty ? Admission::Kind::kEmpty : Admission::Kind::kUnknown;
    admission.why = sight.is_empty ? "" : "is not empty and has no identity of a volume";
    return {};
  }
  if (!sight.has_own) {
    admission.why = "has nothing of the targets that are recorded on it";
    return {};
  }
  for (const TargetRow& each : rows) {
    if (each.state != RecordState::kWhole) continue;  // of which nothing need be there
    bool found = false;
    status = host.EngineOf(volume).FindTarget(PlaceOf(each), found, host.watcher);
    if (!status.IsOk()) return status;
    if (found) continue;
    admission.why = "lacks target " + Quoted(each.target.GetId()) + ", which is recorded on it";
    return {};
  }
  admission.kind = Admission::Kind::kFormer;
  return {};
}

}  // namespace

Status JudgeVolume(Host& host, Volume& volume, const VolumeSight& sight, Admission& admission) {
  admission = {};
  if (!sight.has_identity) return JudgeUnidentified(host, volume, sight, admission);
  if (!sight.identity) {
    admission.why = "has a damaged identity of a volume";
  } else if (sight.identity->node != host.node_id) {
    admission.why = "is a volume of another node, " + Quoted(sight.identity->node);
  } else if (sight.identity->name != volume.name) {
    admission.why = "is volume " + Quoted(sight.identity->name);
  } else if (sight.identity->file_system != sight.file_system) {
    admission.why = "is on another file system, " + Quoted(sight.file_system) + " instead of " +
                    Quoted(sight.identity->file_system);
  } else {
    admission.kind = Admission::Kind::kOurs;
  }
  return {};
}

namespace {

Status JudgeNow(Host& host, Volume& volume, VolumeSight& sight, Admission& admission) {
  Status status = host.EngineOf(volume).Look(sight, host.watcher);
  return status.IsOk() ? JudgeVolume(host, volume, sight, admission) : status;
}

}  // namespace

VolumeIdentity NewIdentity(const Host& host, const Volume& volume, const VolumeSight& sight) {
  return {host.node_id, volume.name, VrelDRCore::GenerateUUID(), sight.file_system};
}

Status MarkVolume(Host& host, Volume& volume, const VolumeIdentity& identity, bool anew) {
  Status status = host.EngineOf(volume).Mark(identity, anew, host.watcher);
  if (status.IsOk()) {
    status = host.store->SetVolume({identity.name, identity.id, identity.file_system});
  }
  if (!status.IsOk()) return status;
  KillPoint(kVolumeRecorded);
  volume.row = {identity.name, identity.id, identity.file_system};
  host.EngineOf(volume).Expect(identity);
  volume.is_admitted = true;
  return {};
}

Status AdmitVolume(Host& host, Volume& volume) {
  if (volume.is_admitted) return {};
  VolumeSight sight;
  Admission admission;
  Status status = JudgeNow(host, volume, sight, admission);
  // What speaks against a volume without an identity may come from somebody else who has given it
  // one meanwhile, and then begun to use it: whoever looks once more sees that.
  const bool isRefused =
      admission.kind == Admission::Kind::kUnknown || admission.kind == Admission::Kind::kElsewhere;
  if (status.IsOk() && isRefused && !sight.has_identity) {
    status = JudgeNow(host, volume, sight, admission);
  }
  if (!status.IsOk()) return status;
  const std::string place = Quoted(volume.where);
  switch (admission.kind) {
    case Admission::Kind::kOurs:
      return MarkVolume(host, volume, *sight.identity, false);
    case Admission::Kind::kFormer:
      status = MarkVolume(host, volume, NewIdentity(host, volume, sight), false);
      if (status.code == kErrExists) return AdmitVolume(host, volume);  // somebody else was first
      // Where it cannot be written now, as for a reader, the next use does it.
      volume.is_admitted = true;
      return {};
    case Admission::Kind::kEmpty:
      volume.is_admitted = true;
      return {};
    case Admission::Kind::kUnknown:
      return {kErrVolumeMissing,
              place + " " + admission.why +
                  "; empty it, correct the path, or run \"drgroupctl volume init " + volume.name +
                  "\" to have volume " + Quoted(volume.name) + " there beside what is there"};
    case Admission::Kind::kElsewhere:
      break;
  }
  return {kErrVolumeMissing,
          place + " " + admission.why + ", so volume " + Quoted(volume.name) +
              " is not there; mount it, or, where its data has moved here for good, run "
              "\"drgroupctl volume init " +
              volume.name + " --adopt\""};
}

Status InitialiseVolume(Host& host, Volume& volume) {
  if (!volume.row.id.empty()) return {};
  VolumeSight sight;
  Status status = host.EngineOf(volume).Look(sight, host.watcher);
  if (!status.IsOk()) return status;
  status = MarkVolume(host, volume, NewIdentity(host, volume, sight), false);
  if (status.code != kErrExists) return status;
  // Somebody else has just done so.
  volume.is_admitted = false;
  return AdmitVolume(host, volume);
}

}  // namespace VrelDR
