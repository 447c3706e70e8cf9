// What the local engine does for cuts.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "base/fail_point.h"
#include "base/kill_point.h"
#include "engine/local/area.h"
#include "engine/local/directory.h"
#include "engine/local/file_data.h"
#include "engine/local/local_cut.h"
#include "engine/local/local_engine.h"
#include "engine/local/settle.h"
#include "engine/local/subvolume.h"
#include "engine/local/write_back.h"
#include "foundation/durable.h"

namespace VrelDR {

using namespace Local;  // the parts of this engine
using VrelHost::SyncFd;

namespace {

// kErrExists when the directory has an entry of the name.
Status CheckFree(int dirFd, const std::string& name) {
  struct stat st;
  const int error = StatEntry(dirFd, name, st);
  if (error == ENOENT) return {};
  if (error != 0) return StatusOfErrno(error, name);
  return {kErrExists, "something called " + Quoted(name) + " is among its snapshots already"};
}

// Gives a subvolume of a cut its name. 0 or an errno; ENOENT when there is none.
int Unhide(int snapshotsFd, const std::string& snapId) {
  const std::string hidden = CutName(snapId);
  // A read-only one can be renamed within its directory alone.
  if (renameat2(snapshotsFd, hidden.c_str(), snapshotsFd, snapId.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EPERM) return errno;
  // Its user has made the top immutable, and it cannot be moved at all. A read-only snapshot of it
  // is the same to btrfs.
  const Fd dir = OpenDir(snapshotsFd, hidden);
  if (!dir) return errno;
  const int error = SnapshotSubvolume(dir.Get(), snapshotsFd, snapId, Access::kReadOnly);
  return error == 0 ? RemoveSubvolume(snapshotsFd, hidden) : error;
}

}  // namespace

Status LocalEngine::GetCutDomain(std::string& domain, Watcher& watcher) const {
  Fd volume;
  Status status = dir_.Open(volume, watcher);
  if (!status.IsOk()) return status;
  domain = dir_.GetPath();  // copies of two volumes have nothing in common
  const int error = IsBtrfs(volume.Get()) ? VrelHost::IdentifyFileSystem(volume.Get(), domain) : 0;
  return error == 0 ? Status() : StatusOfErrno(error, dir_.GetPath());
}

Status LocalEngine::AddToCut(const CutMember& member, Watcher& watcher, CutPlan& plan) const {
  const TargetPlace& target = member.place;
  auto [volume, own, status] = dir_.Open(kFailTake, target, watcher);
  if (status.IsOk()) status = CheckPlace(target, PlaceUse::kSnapshot, watcher);
  if (!status.IsOk()) return status;
  Fd source = OpenDir(volume.Get(), target.locator);
  if (!source) return StatusOfErrno(errno, dir_.PathOf(target));
  Fd snapshots = OpenOrMakeArea(own.Get(), kSnapshots, target);
  if (!snapshots) return dir_.AreaFailure(errno, own.Get(), kSnapshots, target);
  const std::string name = CutName(member.snapId);
  status = CheckFree(snapshots.Get(), member.snapId);
  if (status.IsOk()) status = CheckFree(snapshots.Get(), name);
  if (!status.IsOk()) return status;
  if (IsSubvolume(source.Get())) {
    plan.parts.push_back({target.id, std::move(source), std::move(snapshots), name});
    // Somebody may have nested one before the snapshot.
    plan.checks.emplace_back(
        [this, target](Watcher& each) { return CheckPlace(target, PlaceUse::kSnapshot, each); });
  } else {
    const Fd tmp = OpenOrMakeArea(own.Get(), kTmp, target);
    if (!tmp) return dir_.AreaFailure(errno, own.Get(), kTmp, target);
    status = CheckFree(tmp.Get(), member.snapId);
    plan.copy_method = CanShareBlocks(volume.Get()) ? "reflink" : "copy";
    plan.copies.emplace_back([this, target, snapId = member.snapId,
                              from = std::make_shared<Fd>(std::move(source)),
                              to = std::make_shared<Fd>(std::move(own))](Watcher& each) {
      Status copied = FailPoint(kFailCut, target.id);
      if (copied.IsOk()) copied = CopyBytes(target, snapId, from->Get(), to->Get(), each);
      return InContext("target " + Quoted(target.id), copied);
    });
  }
  return status;
}

Status LocalEngine::PrepareCut(const std::vector<CutMember>& members, Watcher& watcher,
                               std::unique_ptr<EngineCut>& cut) const {
  CutPlan plan;
  auto [volume, own, status] = dir_.Open(watcher);
  if (!status.IsOk()) return status;
  plan.path = dir_.GetPath();
  plan.volume = std::move(volume);
  plan.own = std::move(own);
  std::string domain;
  status = GetCutDomain(domain, watcher);
  for (const CutMember& each : members) {
    if (!status.IsOk()) return status;
    const auto& engine = static_cast<const LocalEngine&>(*each.engine);
    std::string its;
    status = engine.GetCutDomain(its, watcher);
    // Numbers of transactions say something of one file system alone.
    if (status.IsOk() && its != domain) {
      status = {kErrVolumeMissing, Quoted(engine.dir_.GetPath()) +
                                       " is not on the file system that it was on; mount it again "
                                       "and run it again"};
    }
    if (status.IsOk()) status = engine.AddToCut(each, watcher, plan);
    status = InContext("target " + Quoted(each.place.id), status);
  }
  if (!status.IsOk()) return status;
  auto made = std::make_unique<LocalCut>(std::move(plan));
  status = made->Prepare();
  if (status.IsOk()) cut = std::move(made);
  return status;
}

Status LocalEngine::TakeUp(const TargetPlace& target, const std::string& snapId,
                           Watcher& watcher) const {
  auto [volume, own, status] = dir_.Open(kFailTakeUp, target, watcher);
  if (!status.IsOk()) return status;
  WriteBack writeBack(volume.Get(), dir_.GetPath());
  const Fd snapshots = OpenOrMakeArea(own.Get(), kSnapshots, target);
  if (!snapshots) return dir_.AreaFailure(errno, own.Get(), kSnapshots, target);
  int error = Unhide(snapshots.Get(), snapId);
  if (error == 0) {
    KillPoint(kTakeRenamed);
    error = SyncFd(snapshots.Get());
    return error == 0 ? Status() : StatusOfErrno(error, dir_.GetPath());
  }
  if (error != ENOENT) return StatusOfErrno(error, dir_.SnapshotPath(target, snapId));
  const Fd tmp = OpenArea(own.Get(), kTmp, target);
  if (!tmp && errno != ENOENT) return dir_.AreaFailure(errno, own.Get(), kTmp, target);
  struct stat st;
  const int inTmp = tmp ? StatEntry(tmp.Get(), snapId, st) : ENOENT;
  if (inTmp == 0) return SettleCopy(target, snapId, own.Get(), snapshots.Get(), writeBack);
  const int inPlace = StatEntry(snapshots.Get(), snapId, st);
  if (inPlace == 0) return FinishSettling(snapshots.Get(), snapId, writeBack, dir_.GetPath());
  if (inTmp != ENOENT || inPlace != ENOENT) {
    return StatusOfErrno(inTmp != ENOENT ? inTmp : inPlace, dir_.SnapshotPath(target, snapId));
  }
  return {kErrSnapshotMissing, "no cut has made " + Quoted(dir_.SnapshotPath(target, snapId)) +
                                   "; take the snapshot again"};
}

}  // namespace VrelDR
