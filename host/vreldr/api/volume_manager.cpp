#include "vreldr/volume.h"

#include "base/boundary.h"
#include "target/host.h"
#include "target/volume_admission.h"

namespace VrelDR {

namespace {

VolumeInfo Describe(Host& host, Volume& volume) {
  VolumeInfo info;
  info.name = volume.name;
  info.engine = volume.engine_name;
  info.where = volume.where;
  VolumeDescription description;
  Status status = host.EngineOf(volume).Describe(description, host.watcher);
  if (status.IsOk() && host.store) status = AdmitVolume(host, volume);
  info.method = description.method;
  info.is_atomic = description.is_atomic;
  info.is_immutable = description.is_immutable;
  info.size_bytes = description.size_bytes;
  info.free_bytes = description.free_bytes;
  info.problem = status.message;
  return info;
}

// What of the recorded targets is there. `engine` expects nothing of the volume; one that cannot be
// looked into has nothing.
Status FindRecorded(Host& host, const Volume& volume, const StorageEngine& engine,
                    std::vector<RecordedTarget>& targets) {
  std::vector<TargetRow> rows;
  Status status = host.store->ListTargets(rows);
  for (const TargetRow& row : rows) {
    if (row.volume != volume.name) continue;
    RecordedTarget target;
    std::vector<SnapshotRow> recorded;
    SnapshotIds existing;
    target.target_id = row.target.GetId();
    if (status.IsOk()) status = host.store->ListSnapshots(target.target_id, recorded);
    if (!status.IsOk()) return status;
    (void)engine.FindTarget(PlaceOf(row), target.is_existed, host.watcher);
    (void)engine.ListSnapshots(PlaceOf(row), existing, host.watcher);
    for (const SnapshotRow& each : recorded) {
      const std::string& id = each.snapshot.snap_id;
      (existing.count(id) != 0 ? target.snapshots : target.missing_snapshots).push_back(id);
    }
    targets.push_back(std::move(target));
  }
  return status;
}

struct Sighted {
  Volume* volume = nullptr;
  VolumeSight sight;
  std::unique_ptr<StorageEngine> engine;  // expects nothing
};

Status Examine(Host& host, const std::string& name, Sighted& seen, VolumeExamination& found) {
  Status status = host.FindVolume(name, seen.volume);
  if (!status.IsOk()) return status;
  seen.engine = host.MakeEngine(*seen.volume);
  status = seen.engine->Look(seen.sight, host.watcher);
  if (!status.IsOk()) return status;
  found.where = seen.volume->where;
  if (!seen.volume->row.id.empty()) {
    status = host.EngineOf(*seen.volume).CheckWritable(host.watcher);
    found.is_initialised = status.IsOk();
    found.needs_adoption = status.code == kErrVolumeMissing;
    found.why = status.message;
    if (!status.IsOk() && !found.needs_adoption) return status;
  } else {
    Admission admission;
    status = JudgeVolume(host, *seen.volume, seen.sight, admission);
    if (!status.IsOk()) return status;
    found.needs_adoption = admission.kind == Admission::Kind::kElsewhere;
    found.why = Quoted(found.where) + " " + admission.why;
  }
  return FindRecorded(host, *seen.volume, *seen.engine, found.targets);
}

// kErrExists when another volume of the configuration shows the identity that this one has.
Status CheckNotShared(Host& host, const Sighted& seen) {
  if (!seen.sight.identity) return {};
  for (Volume& each : host.volumes) {
    VolumeSight other;
    if (each.name == seen.volume->name || !host.EngineOf(each).Look(other, host.watcher).IsOk())
      continue;
    if (!other.identity || other.identity->id != seen.sight.identity->id) continue;
    return {kErrExists, Quoted(seen.volume->where) + " has the identity of volume " +
                            Quoted(each.name) + ", which is at " + Quoted(each.where) +
                            " now; unmount or remove one of them"};
  }
  return {};
}

// The identity for the volume: the one that it has when the records know it as this volume's.
VolumeIdentity IdentityFor(const Host& host, const Sighted& seen) {
  VolumeIdentity identity = NewIdentity(host, *seen.volume, seen.sight);
  const auto& has = seen.sight.identity;
  const bool isKnown = has && has->node == host.node_id && has->name == seen.volume->name &&
                       (seen.volume->row.id.empty() || has->id == seen.volume->row.id);
  if (isKnown) identity.id = has->id;
  return identity;
}

Status Initialise(const std::string& name, bool adopt, std::string& id) {
  const std::string cannot = "cannot initialise volume " + Quoted(name);
  const std::shared_ptr<Host> host = TheHost();
  Sighted seen;
  VolumeExamination found;
  TargetLock lock;
  Status status = host->Open(Making::kWhenAbsent);
  // No target has a name that begins like this.
  if (status.IsOk()) {
    status = InContext(cannot, lock.Acquire(host->config.state_dir, ".volumes"));
  }
  if (status.IsOk()) status = InContext(cannot, Examine(*host, name, seen, found));
  if (!status.IsOk()) return status;
  if (found.is_initialised) {
    return {kErrExists, cannot + ": " + Quoted(found.where) + " has its identity already"};
  }
  if (found.needs_adoption && !adopt) {
    return {kErrVolumeMissing,
            cannot + ": " + found.why + "; mount the volume, or adopt what is there"};
  }
  const VolumeIdentity identity = IdentityFor(*host, seen);
  status = CheckNotShared(*host, seen);
  if (status.IsOk()) status = MarkVolume(*host, *seen.volume, identity, true);
  if (status.IsOk()) id = identity.id;
  return InContext(cannot, status);
}

}  // namespace

bool VolumeManager::List(std::vector<VolumeInfo>& volumes) const {
  return RunAndRecord(*this, [&]() -> Status {
    const std::shared_ptr<Host> host = TheHost();
    // A host that is not in order does not hide what there is to be seen of its volumes.
    Status status = host->OpenIfMade();
    if (status.code == kErrConfig) return status;
    for (Volume& each : host->volumes) volumes.push_back(Describe(*host, each));
    return {};
  });
}

bool VolumeManager::Examine(const std::string& volume, VolumeExamination& examination) const {
  return RunAndRecord(*this, [&]() -> Status {
    const std::shared_ptr<Host> host = TheHost();
    Sighted seen;
    examination = {};
    Status status = host->Open(Making::kWhenAbsent);
    return status.IsOk() ? VrelDR::Examine(*host, volume, seen, examination) : status;
  });
}

bool VolumeManager::Initialise(const std::string& volume, bool adopt, std::string& id) const {
  return RunAndRecord(*this, [&] { return VrelDR::Initialise(volume, adopt, id); });
}

}  // namespace VrelDR
