#include "target/host.h"

#include <algorithm>
#include <map>
#include <thread>

#include "engine/support/watch.h"
#include "engine/tables.h"
#include "target/volume_admission.h"
#include "vreldrnode/open_config.h"

namespace VrelDR {

Status NoSuchTarget(const std::string& targetId) {
  return {kErrTargetMissing,
          "target " + Quoted(targetId) + " does not exist; correct the name or create it"};
}

Status BytesGone(const TargetRow& row) {
  return {kErrTargetMissing, "the bytes of target " + Quoted(row.target.GetId()) + " on volume " +
                                 Quoted(row.volume) +
                                 " are gone; put them back or remove the target"};
}

std::string Cannot(const std::string& what, const TargetRow& row) {
  return "cannot " + what + " target " + Quoted(row.target.GetId()) + " on volume " +
         Quoted(row.volume);
}

bool IsOutOfReach(const Status& status) {
  return status.code == kErrVolumeMissing || status.code == kErrUnreachable;
}

bool IsAllowedId(const std::string& id) {
  constexpr std::size_t kLongest = 200;
  return !id.empty() && id.size() <= kLongest && id.front() != '.' &&
         std::none_of(id.begin(), id.end(), [](char c) {
           const auto byte = static_cast<unsigned char>(c);
           return c == '/' || byte < 0x20 || byte == 0x7f;
         });
}

Status OpenVolumes(VrelHost::Config& config, std::vector<Volume>& volumes) {
  Status status = VrelHost::OpenConfig(config);
  if (!status.IsOk()) return status;
  const std::string about = "configuration " + Quoted(config.file);
  std::map<std::string, std::string> places;
  for (const VrelHost::VolumeConfig& each : config.volumes) {
    Volume volume;
    volume.name = each.name;
    volume.engine_name = each.engine;
    const EngineRow* row = nullptr;
    status = FindEngineRow(each, config, row, volume.where);
    if (!status.IsOk()) return InContext(about, status);
    const auto [place, isNew] = places.emplace(volume.where, each.name);
    if (!isNew) {
      return {kErrConfig, about + ": volumes " + Quoted(place->second) + " and " +
                              Quoted(each.name) + " are both at " + Quoted(place->first) +
                              "; remove one"};
    }
    volumes.push_back(std::move(volume));
  }
  return {};
}

Status Host::OpenIfMade() {
  if (store) return {};
  volumes.clear();
  VrelHost::HostStanding standing;
  Status status = OpenVolumes(config, volumes);
  if (status.IsOk()) status = FindHost(config, Making::kNever, standing);
  if (!status.IsOk() || !standing.is_there) return status;
  node_id = standing.node_id;
  status = Store::Open(config.state_dir, store);
  if (status.IsOk()) status = ReadIdentities();
  if (!status.IsOk()) store.reset();
  return status;
}

Status Host::Open(Making making) {
  Status status = OpenIfMade();
  if (!status.IsOk() || store) return status;
  if (making == Making::kWhenAbsent) {
    VrelHost::HostStanding standing;
    status = FindHost(config, making, standing);
    return status.IsOk() ? OpenIfMade() : status;
  }
  return {kErrStore, "there is no host yet in the state directory " + Quoted(config.state_dir) +
                         "; correct \"state_dir\" in " + Quoted(config.file) +
                         ", create the first target or run \"drgroupctl host init\""};
}

Status Host::ReadIdentities() {
  std::vector<VolumeRow> rows;
  Status status = store->ListVolumes(rows);
  for (Volume& volume : volumes) {
    for (VolumeRow& row : rows) {
      if (row.name != volume.name) continue;
      volume.is_admitted = true;
      volume.row = std::move(row);
    }
  }
  return status;
}

Status Host::FindVolume(const std::string& name, Volume*& volume) {
  const auto found = std::find_if(volumes.begin(), volumes.end(),
                                  [&](const Volume& each) { return each.name == name; });
  if (found == volumes.end()) {
    return {kErrVolumeMissing, "volume " + Quoted(name) + " is not in the configuration " +
                                   Quoted(config.file) + "; add it or name another"};
  }
  volume = &*found;
  return {};
}

const VrelHost::VolumeConfig& Host::ConfigOf(const Volume& volume) const {
  return *std::find_if(
      config.volumes.begin(), config.volumes.end(),
      [&](const VrelHost::VolumeConfig& each) { return each.name == volume.name; });
}

std::unique_ptr<StorageEngine> Host::MakeEngine(const Volume& volume) const {
  const VrelHost::VolumeConfig& settings = ConfigOf(volume);
  const EngineRow* row = nullptr;
  std::string where;
  (void)FindEngineRow(settings, config, row, where);  // was found good when the host was opened
  return row->make(settings, config);
}

StorageEngine& Host::EngineOf(Volume& volume) {
  if (!volume.engine) {
    volume.engine = MakeEngine(volume);
    if (!volume.row.id.empty()) volume.engine->Expect(IdentityOf(volume.row));
  }
  return *volume.engine;
}

LinkEnd Host::EndOf(const Volume& volume) const {
  LinkEnd end{ConfigOf(volume), {}};
  if (!volume.row.id.empty()) end.identity = IdentityOf(volume.row);
  return end;
}

Status Host::FindLink(const std::string& from, const std::string& to, std::unique_ptr<Link>& link) {
  Volume* source = nullptr;
  Volume* replica = nullptr;
  Status status = FindVolume(from, source);
  if (status.IsOk()) status = FindVolume(to, replica);
  return status.IsOk() ? MakeLink(EndOf(*source), EndOf(*replica), config, link) : status;
}

Status Host::FindEngine(const std::string& name, const StorageEngine*& engine) {
  Volume* volume = nullptr;
  Status status = FindVolume(name, volume);
  if (status.IsOk()) status = AdmitVolume(*this, *volume);
  if (status.IsOk()) engine = &EngineOf(*volume);
  return status;
}

TargetPlace PlaceOf(const TargetRow& row) {
  return {row.target.GetId(), row.target.GetType(), row.locator};
}

Status HostTarget::FindRow(const std::string& targetId) {
  std::optional<TargetRow> found;
  Status status = host_.store->GetTargetOfAnyState(targetId, found);
  if (!status.IsOk()) return status;
  return found ? Adopt(*found) : NoSuchTarget(targetId);
}

Status HostTarget::CheckWhole() const {
  return row_.state == RecordState::kWhole ? Status() : NoSuchTarget(row_.target.GetId());
}

Status HostTarget::Adopt(const TargetRow& row) {
  row_ = row;
  return InContext(Cannot("look at"), host_.FindEngine(row.volume, engine_));
}

Status HostTarget::FindBytes() const {
  bool found = false;
  Status status = engine_->FindTarget(GetPlace(), found, GetWatcher());
  if (!status.IsOk()) return InContext(Cannot("look at"), status);
  return found ? Status() : BytesGone(row_);
}

Status HostTarget::OpenToRead(const std::string& targetId) {
  Status status = host_.Open();
  if (status.IsOk()) status = FindRow(targetId);
  if (status.IsOk()) status = CheckWhole();
  return status.IsOk() ? FindBytes() : status;
}

Status HostTarget::Lock(const std::string& targetId, const Patience& patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience.time;
  for (;;) {
    Status status = lock_.Acquire(host_.config.state_dir, targetId);
    if (status.code != kErrBusy) return status;
    if (CutParts::Has(targetId)) {  // for which nobody would ever have waited long enough
      status.message = "a cut that this process has prepared holds it; take its snapshot up first";
      return status;
    }
    if (std::chrono::steady_clock::now() >= deadline) return status;
    if (patience.watcher != nullptr && !patience.watcher->GoesOn()) return Watch::Stopped();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

Status HostTarget::Claim(const std::string& targetId, const Patience& patience) {
  Status status = host_.Open();
  if (status.IsOk()) status = FindRow(targetId);
  if (!status.IsOk()) return status;
  status = InContext(Cannot("work on"), Lock(targetId, patience));
  // Somebody may have changed or removed it before the lock was ours.
  return status.IsOk() ? FindRow(targetId) : status;
}

Status HostTarget::OpenToWrite(const std::string& targetId, const Patience& patience) {
  Status status = Claim(targetId, patience);
  if (status.IsOk()) status = CheckWhole();
  if (status.IsOk()) status = FindBytes();
  if (status.IsOk()) status = InContext(Cannot("change"), engine_->CheckWritable(GetWatcher()));
  if (!status.IsOk()) return status;
  return InContext(Cannot("clean up"), CleanUpSnapshots(*this));
}

Status HostTarget::OpenToTake(const std::string& targetId, const Patience& patience) {
  part_ = BorrowedPart::Of(targetId);
  if (!part_) return OpenToWrite(targetId, patience);
  Status status = host_.Open();
  if (status.IsOk()) status = FindRow(targetId);
  return status.IsOk() ? CheckWhole() : status;
}

Status HostTarget::ListSnapshots(std::vector<Operation::Snapshot>& snapshots) const {
  std::vector<SnapshotRow> rows;
  Status status = host_.store->ListSnapshots(row_.target.GetId(), rows);
  if (!status.IsOk() || rows.empty()) return status;
  SnapshotIds existing;
  status = engine_->ListSnapshots(GetPlace(), existing, GetWatcher());
  if (!status.IsOk()) return InContext(Cannot("list the snapshots of"), status);
  const TargetPlace place = GetPlace();
  snapshots.reserve(snapshots.size() + rows.size());
  for (SnapshotRow& each : rows) {
    Operation::Snapshot& snapshot = each.snapshot;
    if (existing.count(snapshot.snap_id) == 0) continue;
    snapshot.path = engine_->GetSnapshotPath(place, snapshot.snap_id);
    snapshots.push_back(std::move(snapshot));
  }
  const auto isOlder = [](const auto& a, const auto& b) { return b > a; };
  // Nearly always they were taken in the order of their times.
  if (!std::ranges::is_sorted(snapshots, isOlder)) std::ranges::sort(snapshots, isOlder);
  return {};
}

Status HostTarget::GetSnapshot(const std::string& snapId,
                               std::optional<Operation::Snapshot>& found) const {
  found.reset();
  std::optional<SnapshotRow> row;
  Status status = host_.store->GetSnapshot(row_.target.GetId(), snapId, row);
  if (!status.IsOk() || !row) return status;
  std::vector<TargetSight> sights(1);
  TargetSight& sight = sights.front();
  sight.place = GetPlace();
  sight.snap_id = snapId;
  status = engine_->LookAtTargets(sights, GetWatcher());
  if (status.IsOk()) status = sight.status;
  if (!status.IsOk()) return InContext(Cannot("list the snapshots of"), status);
  if (!sight.has_snapshot) return {};
  found = std::move(row->snapshot);
  found->path = engine_->GetSnapshotPath(sight.place, snapId);
  return {};
}

Status FindLink(const HostTarget& from, const HostTarget& to, std::unique_ptr<Link>& link) {
  return from.GetHost().FindLink(from.GetRow().volume, to.GetRow().volume, link);
}

Status CleanUpSnapshots(const HostTarget& opened) {
  const StorageEngine& engine = opened.GetEngine();
  const TargetPlace place = opened.GetPlace();
  std::vector<SnapshotRow> rows;
  Status status = opened.GetStore().ListUnfinishedSnapshots(place.id, rows);
  for (const SnapshotRow& each : rows) {
    if (!IsHalfDone(each.state)) continue;
    const std::string& snapId = each.snapshot.snap_id;
    if (status.IsOk()) status = engine.RemoveSnapshot(place, snapId, opened.GetWatcher());
    if (status.IsOk()) status = opened.GetStore().RemoveSnapshot(place.id, each.snapshot);
  }
  return status.IsOk() ? engine.CleanUp(place, opened.GetWatcher()) : status;
}

}  // namespace VrelDR
