#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "contract_rig.h"
#include "engine/cut.h"
#include "tree.h"

// What engine/engine.h and engine/link.h promise, of every engine that keeps them. What an engine
// may refuse is tested of the one that refuses it.

namespace host_test {

namespace fs = std::filesystem;
using VrelDR::kErrIo;
using VrelDR::kErrSnapshotMissing;
using VrelDR::kErrStopped;
using VrelDR::kErrUnreachable;
using VrelDR::kErrUnsupported;
using VrelDR::kErrVolumeMissing;
using VrelDR::Manner;
using VrelDR::PlaceUse;
using VrelDR::Status;
using VrelDR::TargetPlace;
using VrelDR::Watcher;

constexpr std::size_t kMiB = 1 << 20;

class EngineContractTest : public ContractTest {
 protected:
  using Call = std::function<Status(Watcher&)>;

  // All calls that need the side's volume, each about the target that the side has.
  static std::vector<std::pair<std::string, Call>> CallsOf(const Side& side) {
    const VrelDR::StorageEngine& engine = *side.engine;
    const TargetPlace& place = side.place;
    const TargetPlace other{"other", VrelDR::kTargetShare, "other"};
    return {
        {"Describe",
         [&](Watcher& watcher) {
           VrelDR::VolumeDescription description;
           return engine.Describe(description, watcher);
         }},
        {"Look",
         [&](Watcher& watcher) {
           VrelDR::VolumeSight sight;
           return engine.Look(sight, watcher);
         }},
        {"Mark", [&](Watcher& watcher) { return engine.Mark(*side.identity, false, watcher); }},
        {"CheckWritable", [&](Watcher& watcher) { return engine.CheckWritable(watcher); }},
        {"PreparePlace",
         [&](Watcher& watcher) {
           std::string locator;
           return engine.PreparePlace({"other", VrelDR::kTargetShare}, locator, watcher);
         }},
        {"CreateTarget",
         [&, other](Watcher& watcher) { return engine.CreateTarget(other, {}, watcher); }},
        {"FindTarget",
         [&](Watcher& watcher) {
           bool found = false;
           return engine.FindTarget(place, found, watcher);
         }},
        {"LookAtTargets",
         [&](Watcher& watcher) {
           std::vector<VrelDR::TargetSight> sights(1);
           sights.front().place = place;
           return engine.LookAtTargets(sights, watcher);
         }},
        {"CheckPlace",
         [&](Watcher& watcher) { return engine.CheckPlace(place, PlaceUse::kRemoval, watcher); }},
        {"FindLeftOut",
         [&](Watcher& watcher) {
           std::vector<std::string> paths;
           return engine.FindLeftOut(place, paths, watcher);
         }},
        {"FindUsers",
         [&](Watcher& watcher) {
           VrelDR::UsersSeen seen;
           return engine.FindUsers({place}, seen, watcher);
         }},
        {"RemoveTarget", [&](Watcher& watcher) { return engine.RemoveTarget(place, watcher); }},
        {"TakeSnapshot",
         [&](Watcher& watcher) { return engine.TakeSnapshot(place, "new", watcher); }},
        {"ListSnapshots",
         [&](Watcher& watcher) {
           VrelDR::SnapshotIds ids;
           return engine.ListSnapshots(place, ids, watcher);
         }},
        {"RemoveSnapshot",
         [&](Watcher& watcher) { return engine.RemoveSnapshot(place, "s1", watcher); }},
        {"RestoreSnapshot",
         [&](Watcher& watcher) { return engine.RestoreSnapshot(place, "s1", watcher); }},
        {"CloneSnapshot",
         [&, other](Watcher& watcher) {
           return engine.CloneSnapshot(place, "s1", other, watcher);
         }},
        {"GetCutDomain",
         [&](Watcher& watcher) {
           std::string domain;
           return engine.GetCutDomain(domain, watcher);
         }},
        {"PrepareCut",
         [&](Watcher& watcher) {
           std::unique_ptr<VrelDR::EngineCut> cut;
           return engine.PrepareCut({{&engine, place, "new"}}, watcher, cut);
         }},
        {"TakeUp", [&](Watcher& watcher) { return engine.TakeUp(place, "s1", watcher); }},
        {"Quiesce", [&](Watcher& watcher) { return engine.Quiesce(place, watcher); }},
        {"Demote", [&](Watcher& watcher) { return engine.Demote(place, watcher); }},
        {"Promote",
         [&](Watcher& watcher) { return engine.Promote(place, "s1", Manner::kForced, watcher); }},
        {"Rejoin", [&](Watcher& watcher) { return engine.Rejoin(place, "kept", watcher); }},
        {"CleanUp", [&](Watcher& watcher) { return engine.CleanUp(place, watcher); }},
    };
  }

  Status Attach() {
    Watcher watcher;
    return LinkOf(A(), B())->Attach(A().place, B().place, watcher);
  }
  Status Detach() {
    Watcher watcher;
    return LinkOf(A(), B())->Detach(A().place, B().place, watcher);
  }
  static Status Quiesce(const EngineTarget& target) {
    Watcher watcher;
    return target.engine->Quiesce(target.place, watcher);
  }
  static Status DemoteOnly(const EngineTarget& target) {
    Watcher watcher;
    return target.engine->Demote(target.place, watcher);
  }
  static Status Promote(const EngineTarget& target, const std::string& snapId, Manner manner) {
    Watcher watcher;
    return target.engine->Promote(target.place, snapId, manner, watcher);
  }
  static Status Rejoin(const EngineTarget& target, const std::string& keptId) {
    Watcher watcher;
    return target.engine->Rejoin(target.place, keptId, watcher);
  }
  Status ShipToB(const std::string& snapId) {
    Watcher watcher;
    return TryShip(A(), snapId, "", B(), watcher);
  }
  // The whole way of a switchover.
  static void SwitchOver(const Side& from, const Side& to, const std::string& snapId,
                         const std::string& base) {
    ExpectGood(Quiesce(from));
    Take(from, snapId);
    Ship(from, snapId, base, to);
    ExpectGood(DemoteOnly(from));
    ExpectGood(Promote(to, snapId, Manner::kOrderly));
  }
  // The time of the top is set last, when all else is in its place.
  static Tree WithoutTop(Tree tree) {
    tree.erase(".");
    return tree;
  }
};

}  // namespace host_test
