#include "fake_engine.h"

#include <fcntl.h>
#include <linux/fs.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/support/file_users.h"

namespace VrelDR::Fake {

namespace fs = std::filesystem;

namespace {

constexpr const char* kFileSystem = "fake";
constexpr const char* kDiskImage = "disk.img";

std::string ForUsers(const TargetPlace& place, const fs::path& bytes) {
  return place.type == kTargetLun ? bytes / kDiskImage : bytes;
}

// In one step.
void Exchange(const fs::path& one, const fs::path& other) {
  if (renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0) return;
  throw fs::filesystem_error("exchange", one, std::error_code(errno, std::generic_category()));
}

}  // namespace

Status FakeEngine::LoadToChange(const TargetPlace& place, State& state) const {
  Status status = store_.CheckWritable();
  return status.IsOk() ? store_.Load(place, state) : status;
}

Status FakeEngine::FindSnapshot(const TargetPlace& place, const std::string& snapId) const {
  if (store_.IsWhole(place, snapId)) return {};
  return {kErrSnapshotMissing, "snapshot " + Quoted(snapId) + " of target " + Quoted(place.id) +
                                   " is missing in " + Quoted(store_.GetPath())};
}

Status FakeEngine::Describe(VolumeDescription& description, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    const fs::space_info room = fs::space(store_.GetPath());
    description.method = "plain files";
    description.size_bytes = room.capacity;
    description.free_bytes = room.available;
    return store_.CheckWritable();
  });
}

Status FakeEngine::Look(VolumeSight& sight, Watcher& watcher) const {
  return Guarded([&]() -> Status {
    sight = {};
    Status status = Watch(watcher).Wait();
    if (status.IsOk()) status = store_.Reach();
    if (!status.IsOk()) return status;
    const std::optional<std::string> identity = store_.Read(store_.Own() / "identity");
    sight.file_system = kFileSystem;
    sight.has_identity = identity.has_value();
    if (identity) sight.identity = VrelHost::IdentityOf(*identity);
    sight.has_own = identity || fs::exists(store_.Own() / "places");
    sight.is_empty = !sight.has_own;
    for (const auto& each : fs::directory_iterator(store_.GetPath())) {
      if (each.path() != store_.Own()) sight.is_empty = false;
    }
    return {};
  });
}

Status FakeEngine::Mark(const VolumeIdentity& identity, bool anew, Watcher& watcher) const {
  return Guarded([&]() -> Status {
    Status status = Watch(watcher).Wait();
    if (status.IsOk()) status = store_.Reach();
    if (status.IsOk()) status = store_.CheckWritable();
    if (!status.IsOk()) return status;
    const fs::path file = store_.Own() / "identity";
    const std::optional<std::string> found = store_.Read(file);
    if (found && !anew && *found != ToText(identity)) {
      return {kErrExists, Quoted(file) + " is there already"};
    }
    fs::create_directories(store_.Own());
    KillPoint(kVolumeOwnMade);
    store_.Write(file, ToText(identity));
    KillPoint(kVolumeMarked);
    return {};
  });
}

Status FakeEngine::CheckWritable(Watcher& watcher) const {
  return OnStore(store_, watcher, [&] { return store_.CheckWritable(); });
}

std::string FakeEngine::GetTargetPath(const TargetPlace& place) const {
  return ForUsers(place, store_.BytesOf(place));
}

std::string FakeEngine::GetSnapshotPath(const TargetPlace& place, const std::string& snapId) const {
  return ForUsers(place, store_.SnapshotOf(place, snapId) / "bytes");
}

Status FakeEngine::PreparePlace(const Target& target, std::string& locator,
                                Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    Status status = store_.CheckWritable();
    for (const std::string& each : store_.Locators()) {
      State state;
      if (status.IsOk()) status = store_.Load({target.GetId(), target.GetType(), each}, state);
      if (status.IsOk() && state.id == target.GetId()) {
        return {kErrExists, "target " + Quoted(state.id) + " is there already"};
      }
    }
    if (!status.IsOk()) return status;
    // No place is given away twice: a locator never means another target than it did.
    fs::create_directories(store_.Own());
    const fs::path file = store_.Own() / "places";
    const int last = std::stoi(store_.Read(file).value_or("0"));
    store_.Write(file, std::to_string(last + 1));
    locator = "f-" + std::to_string(last + 1);
    return {};
  });
}

Status FakeEngine::Fill(const TargetPlace& place, const TargetContent& content,
                        Watch& watch) const {
  const fs::path bytes = store_.NewOf(place) / "bytes";
  if (place.type == kTargetLun && content.sources.empty()) {
    std::ofstream(bytes / kDiskImage).close();
    fs::resize_file(bytes / kDiskImage, content.size_bytes);
    return {};
  }
  const bool isAll = content.sources.size() == 1 && fs::is_directory(content.sources[0]);
  Status status;
  for (const fs::path source : content.sources) {
    const fs::path to = place.type == kTargetLun ? bytes / kDiskImage
                        : isAll                  ? bytes
                                                 : bytes / source.filename();
    if (status.IsOk()) status = CopyTree(source, to, watch);
  }
  return status;
}

void FakeEngine::Publish(const TargetPlace& place) const {
  KillPoint(kCreateCopied);
  store_.Save(store_.NewOf(place), {place.id, Part::kWorks, {}});
  fs::rename(store_.NewOf(place), store_.DirOf(place));
  KillPoint(kCreateRenamed);
}

Status FakeEngine::CreateTarget(const TargetPlace& place, const TargetContent& content,
                                Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    Status status = FailPoint(kFailCreate, place.id);
    if (status.IsOk()) status = store_.CheckWritable();
    if (!status.IsOk()) return status;
    if (store_.HasTarget(place)) {
      return {kErrExists, Quoted(store_.DirOf(place)) + " is there already"};
    }
    Watch watch(watcher);
    fs::remove_all(store_.NewOf(place));  // of a call that was interrupted
    fs::create_directories(store_.NewOf(place) / "bytes");
    status = Fill(place, content, watch);
    if (status.IsOk()) Publish(place);
    return status;
  });
}

Status FakeEngine::FindTarget(const TargetPlace& place, bool& found, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    found = store_.HasTarget(place);
    return Status();
  });
}

Status FakeEngine::CheckPlace(const TargetPlace& place, PlaceUse use, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    State state;
    Status status = store_.Load(place, state);
    return use == PlaceUse::kRemoval && status.code == kErrTargetMissing ? Status() : status;
  });
}

Status FakeEngine::FindLeftOut(const TargetPlace& place, std::vector<std::string>& /*paths*/,
                               Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    State state;
    return store_.Load(place, state);
  });
}

Status FakeEngine::FindUsers(const std::vector<TargetPlace>& places, UsersSeen& seen,
                             Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    const auto open = [](const fs::path& path) {
      Fd dir(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (!dir) throw fs::filesystem_error("open", path, {errno, std::generic_category()});
      return dir;
    };
    const Fd volume = open(store_.GetPath());
    std::vector<OwnedTree> trees;
    for (const TargetPlace& each : places) {
      if (!store_.HasTarget(each)) continue;
      const std::string file = each.type == kTargetLun ? kDiskImage : "";
      trees.push_back({each.id, open(store_.BytesOf(each)), file});
    }
    Watch watch(watcher);
    return FindFileUsers(volume.Get(), trees, seen, watch);
  });
}

Status FakeEngine::RemoveTarget(const TargetPlace& place, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    Status status = FailPoint(kFailRemove, place.id);
    if (status.IsOk()) status = store_.CheckWritable();
    if (!status.IsOk()) return status;
    // What says that it is there goes first.
    fs::remove(store_.DirOf(place) / "state");
    fs::remove_all(store_.DirOf(place) / "snapshots");
    KillPoint(kForgetSnapshotsGone);
    fs::remove_all(store_.DirOf(place));
    fs::remove_all(store_.NewOf(place));
    return status;
  });
}

Status FakeEngine::Build(const TargetPlace& place, const std::string& snapId, Watch& watch) const {
  const fs::path snapshot = store_.SnapshotOf(place, snapId);
  fs::remove_all(snapshot);  // of a call that was interrupted
  fs::create_directories(snapshot / "bytes");
  Status status = WaitWhileSlow(store_, watch);
  if (status.IsOk()) status = CopyTree(store_.BytesOf(place), snapshot / "bytes", watch);
  if (!status.IsOk()) return status;
  KillPoint(kTakeCopied);
  return {};
}

Status FakeEngine::Take(const TargetPlace& place, const std::string& snapId, Watch& watch) const {
  Status status = FailPoint(kFailTake, place.id);
  if (!status.IsOk()) return status;
  const fs::path snapshot = store_.SnapshotOf(place, snapId);
  if (store_.IsWhole(place, snapId)) return {kErrExists, Quoted(snapshot) + " is there already"};
  status = Build(place, snapId, watch);
  if (!status.IsOk()) return status;
  store_.Write(snapshot / "whole", {});
  KillPoint(kTakeRenamed);
  return {};
}

Status FakeEngine::TakeSnapshot(const TargetPlace& place, const std::string& snapId,
                                Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    State state;
    Status status = LoadToChange(place, state);
    if (!status.IsOk()) return status;
    if (state.part == Part::kReplica) {
      return {kErrUnsupported, "target " + Quoted(place.id) +
                                   " is a replica, of which no snapshots are taken; promote it"};
    }
    Watch watch(watcher);
    return Take(place, snapId, watch);
  });
}

Status FakeEngine::ListSnapshots(const TargetPlace& place, SnapshotIds& snapIds,
                                 Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    const fs::path snapshots = store_.DirOf(place) / "snapshots";
    if (!fs::exists(snapshots)) return Status();
    for (const auto& each : fs::directory_iterator(snapshots)) {
      const std::string id = each.path().filename();
      if (store_.IsWhole(place, id)) snapIds.insert(id);
    }
    return Status();
  });
}

Status FakeEngine::RemoveSnapshot(const TargetPlace& place, const std::string& snapId,
                                  Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    Status status = store_.CheckWritable();
    if (!status.IsOk()) return status;
    fs::remove(store_.SnapshotOf(place, snapId) / "whole");
    fs::remove_all(store_.SnapshotOf(place, snapId));
    return status;
  });
}

Status FakeEngine::Restore(const TargetPlace& place, const std::string& snapId,
                           Watch& watch) const {
  Status status = FindSnapshot(place, snapId);
  if (!status.IsOk()) return status;
  const fs::path built = store_.BuildingOf(place) / "restored";
  fs::remove_all(built);
  fs::create_directories(built);
  status = WaitWhileSlow(store_, watch);
  if (status.IsOk()) status = CopyTree(store_.SnapshotOf(place, snapId) / "bytes", built, watch);
  if (!status.IsOk()) return status;
  KillPoint(kRestoreCopied);
  Exchange(built, store_.BytesOf(place));
  KillPoint(kRestoreExchanged);
  fs::remove_all(store_.BuildingOf(place));
  KillPoint(kRestoreDone);
  return {};
}

Status FakeEngine::RestoreSnapshot(const TargetPlace& place, const std::string& snapId,
                                   Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    State state;
    Status status = LoadToChange(place, state);
    if (!status.IsOk()) return status;
    if (state.part == Part::kReplica) {
      return {kErrUnsupported,
              "target " + Quoted(place.id) + " is a replica, which is not restored; promote it"};
    }
    Watch watch(watcher);
    return Restore(place, snapId, watch);
  });
}

Status FakeEngine::CloneSnapshot(const TargetPlace& place, const std::string& snapId,
                                 const TargetPlace& clone, Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    Status status = FailPoint(kFailCreate, clone.id);
    if (status.IsOk()) status = store_.CheckWritable();
    if (status.IsOk()) status = FindSnapshot(place, snapId);
    if (!status.IsOk()) return status;
    if (store_.HasTarget(clone)) {
      return {kErrExists, Quoted(store_.DirOf(clone)) + " is there already"};
    }
    Watch watch(watcher);
    fs::remove_all(store_.NewOf(clone));
    fs::create_directories(store_.NewOf(clone));
    status =
        CopyTree(store_.SnapshotOf(place, snapId) / "bytes", store_.NewOf(clone) / "bytes", watch);
    if (status.IsOk()) Publish(clone);
    return status;
  });
}

Status FakeEngine::Quiesce(const TargetPlace& place, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    State state;
    Status status = FailPoint(kFailQuiesce, place.id);
    if (status.IsOk()) status = LoadToChange(place, state);
    if (!status.IsOk()) return status;
    if (state.part == Part::kWorks) {
      state.part = Part::kQuiet;
      store_.Save(store_.DirOf(place), state);
    }
    KillPoint(kQuiesceDone);
    return status;
  });
}

Status FakeEngine::Demote(const TargetPlace& place, Watcher& watcher) const {
  return OnStore(store_, watcher, [&]() -> Status {
    State state;
    Status status = LoadToChange(place, state);
    if (!status.IsOk()) return status;
    if (state.part == Part::kWorks) {
      return {kErrUnsupported,
              "target " + Quoted(place.id) + " is in use; quiesce it before it is demoted"};
    }
    state.part = Part::kReplica;
    store_.Save(store_.DirOf(place), state);
    return {};
  });
}

Status FakeEngine::CheckPeers(const State& state) const {
  for (const Peer& each : state.peers) {
    const Store there(each.path);
    State peer;
    Status status = there.Reach();
    if (!status.IsOk()) {
      return {kErrUnreachable, "the other side of target " + Quoted(state.id) +
                                   " cannot be asked: " + status.message};
    }
    status = there.Load({state.id, 0, each.locator}, peer);
    if (status.code == kErrTargetMissing) continue;
    if (!status.IsOk()) return status;
    if (peer.part == Part::kReplica) continue;
    return {kErrUnsupported, "target " + Quoted(peer.id) +
                                 " has not given up its part, so target " + Quoted(state.id) +
                                 " cannot have it; demote that one"};
  }
  return {};
}

Status FakeEngine::Promote(const TargetPlace& place, const std::string& snapId, Manner manner,
                           Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    State state;
    Status status = FailPoint(kFailPromote, place.id);
    if (status.IsOk()) status = LoadToChange(place, state);
    if (status.IsOk() && manner == Manner::kOrderly) status = CheckPeers(state);
    Watch watch(watcher);
    if (status.IsOk() && !snapId.empty()) status = Restore(place, snapId, watch);
    if (!status.IsOk()) return status;
    state.part = Part::kWorks;
    store_.Save(store_.DirOf(place), state);
    KillPoint(kPromoteDone);
    return status;
  });
}

Status FakeEngine::Rejoin(const TargetPlace& place, const std::string& keptId,
                          Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    State state;
    Status status = LoadToChange(place, state);
    Watch watch(watcher);
    if (status.IsOk() && !store_.IsWhole(place, keptId)) status = Take(place, keptId, watch);
    if (!status.IsOk()) return status;
    state.part = Part::kReplica;
    store_.Save(store_.DirOf(place), state);
    KillPoint(kQuiesceDone);
    return status;
  });
}

Status FakeEngine::CleanUp(const TargetPlace& place, Watcher& watcher) const {
  return OnStore(store_, watcher, [&] {
    Status status = store_.CheckWritable();
    if (!status.IsOk()) return status;
    fs::remove_all(store_.BuildingOf(place));
    fs::remove_all(store_.NewOf(place));
    return status;
  });
}

}  // namespace VrelDR::Fake
