#pragma once

#include <string>

#include "engine/engine.h"
#include "fake_store.h"

namespace VrelDR::Fake {

// Keeps the contract to the letter, and refuses what it may, with kErrUnsupported: an engine knows
// nothing of a plan's state, and a part that does not allow a call is all it can say. A replica is
// not snapshotted and not restored, only what is quiet is demoted, and nothing is promoted in an
// orderly manner beside another target of its pair that has not given up its part, or that cannot
// be asked (kErrUnreachable).
class FakeEngine : public StorageEngine {
 public:
  explicit FakeEngine(const std::string& path) : store_(path) {}

  Status Describe(VolumeDescription& description, Watcher& watcher) const override;
  Status Look(VolumeSight& sight, Watcher& watcher) const override;
  Status Mark(const VolumeIdentity& identity, bool anew, Watcher& watcher) const override;
  void Expect(const VolumeIdentity& identity) override { store_.Expect(identity); }
  Status CheckWritable(Watcher& watcher) const override;

  std::string GetTargetPath(const TargetPlace& place) const override;
  std::string GetSnapshotPath(const TargetPlace& place, const std::string& snapId) const override;

  Status PreparePlace(const Target& target, std::string& locator, Watcher& watcher) const override;
  Status CreateTarget(const TargetPlace& place, const TargetContent& content,
                      Watcher& watcher) const override;
  Status FindTarget(const TargetPlace& place, bool& found, Watcher& watcher) const override;
  Status CheckPlace(const TargetPlace& place, PlaceUse use, Watcher& watcher) const override;
  Status FindLeftOut(const TargetPlace& place, std::vector<std::string>& paths,
                     Watcher& watcher) const override;
  Status FindUsers(const std::vector<TargetPlace>& places, UsersSeen& seen,
                   Watcher& watcher) const override;
  Status RemoveTarget(const TargetPlace& place, Watcher& watcher) const override;

  Status TakeSnapshot(const TargetPlace& place, const std::string& snapId,
                      Watcher& watcher) const override;
  Status ListSnapshots(const TargetPlace& place, SnapshotIds& snapIds,
                       Watcher& watcher) const override;
  Status RemoveSnapshot(const TargetPlace& place, const std::string& snapId,
                        Watcher& watcher) const override;
  Status GetCutDomain(std::string& domain, Watcher& watcher) const override;
  Status PrepareCut(const std::vector<CutMember>& members, Watcher& watcher,
                    std::unique_ptr<EngineCut>& cut) const override;
  Status TakeUp(const TargetPlace& place, const std::string& snapId,
                Watcher& watcher) const override;
  Status RestoreSnapshot(const TargetPlace& place, const std::string& snapId,
                         Watcher& watcher) const override;
  Status CloneSnapshot(const TargetPlace& place, const std::string& snapId,
                       const TargetPlace& clone, Watcher& watcher) const override;

  Status Quiesce(const TargetPlace& place, Watcher& watcher) const override;
  Status Demote(const TargetPlace& place, Watcher& watcher) const override;
  Status Promote(const TargetPlace& place, const std::string& snapId, Manner manner,
                 Watcher& watcher) const override;
  Status Rejoin(const TargetPlace& place, const std::string& keptId,
                Watcher& watcher) const override;

  Status CleanUp(const TargetPlace& place, Watcher& watcher) const override;

 private:
  // A cut's calls for one of its members.
  friend class FakeCut;
  Status CheckMember(const CutMember& member, Watcher& watcher) const;
  Status TakeMember(const CutMember& member, Watcher& watcher) const;
  Status SettleMember(const CutMember& member, Watcher& watcher) const;

  Status LoadToChange(const TargetPlace& place, State& state) const;
  Status FindSnapshot(const TargetPlace& place, const std::string& snapId) const;
  Status Fill(const TargetPlace& place, const TargetContent& content, Watch& watch) const;
  // Lets what was built at NewOf appear.
  void Publish(const TargetPlace& place) const;
  // Copies the target's bytes to where the snapshot is going to be; it is none yet.
  Status Build(const TargetPlace& place, const std::string& snapId, Watch& watch) const;
  Status Take(const TargetPlace& place, const std::string& snapId, Watch& watch) const;
  Status Restore(const TargetPlace& place, const std::string& snapId, Watch& watch) const;
  Status CheckPeers(const State& state) const;

  Store store_;
};

}  // namespace VrelDR::Fake
