#pragma once

#include <string>

#include "base/fd.h"
#include "engine/engine.h"
#include "engine/local/volume_dir.h"

namespace VrelDR {

class Watch;

namespace Local {
class DigestWriter;
class WriteBack;
struct CutPlan;
}  // namespace Local

// A volume that is a directory of this node; see VolumeDir. It prevents writing of a target that is
// quiet, and makes no difference between that and one that was demoted: whoever knows both sides
// sees to it that only one works.
class LocalEngine : public StorageEngine {
 public:
  explicit LocalEngine(const std::string& path) : dir_(path) {}

  Status Describe(VolumeDescription& description, Watcher& watcher) const override;
  Status Look(VolumeSight& sight, Watcher& watcher) const override;
  Status Mark(const VolumeIdentity& identity, bool anew, Watcher& watcher) const override;
  void Expect(const VolumeIdentity& identity) override { dir_.Expect(identity); }
  Status CheckWritable(Watcher& watcher) const override;
  std::string GetTargetPath(const TargetPlace& target) const override;
  std::string GetSnapshotPath(const TargetPlace& target, const std::string& snapId) const override;
  Status PreparePlace(const Target& target, std::string& locator, Watcher& watcher) const override;
  Status CreateTarget(const TargetPlace& target, const TargetContent& content,
                      Watcher& watcher) const override;
  Status FindTarget(const TargetPlace& target, bool& found, Watcher& watcher) const override;
  Status LookAtTargets(std::vector<TargetSight>& sights, Watcher& watcher) const override;
  Status CheckPlace(const TargetPlace& target, PlaceUse use, Watcher& watcher) const override;
  Status FindLeftOut(const TargetPlace& target, std::vector<std::string>& paths,
                     Watcher& watcher) const override;
  Status FindUsers(const std::vector<TargetPlace>& targets, UsersSeen& seen,
                   Watcher& watcher) const override;
  Status RemoveTarget(const TargetPlace& target, Watcher& watcher) const override;
  Status TakeSnapshot(const TargetPlace& target, const std::string& snapId,
                      Watcher& watcher) const override;
  Status ListSnapshots(const TargetPlace& target, SnapshotIds& snapIds,
                       Watcher& watcher) const override;
  Status RemoveSnapshot(const TargetPlace& target, const std::string& snapId,
                        Watcher& watcher) const override;
  Status GetCutDomain(std::string& domain, Watcher& watcher) const override;
  Status PrepareCut(const std::vector<CutMember>& members, Watcher& watcher,
                    std::unique_ptr<EngineCut>& cut) const override;
  Status TakeUp(const TargetPlace& target, const std::string& snapId,
                Watcher& watcher) const override;
  Status RestoreSnapshot(const TargetPlace& target, const std::string& snapId,
                         Watcher& watcher) const override;
  Status CloneSnapshot(const TargetPlace& target, const std::string& snapId,
                       const TargetPlace& clone, Watcher& watcher) const override;
  Status Quiesce(const TargetPlace& target, Watcher& watcher) const override;
  Status Demote(const TargetPlace& target, Watcher& watcher) const override;
  Status Promote(const TargetPlace& target, const std::string& snapId, Manner manner,
                 Watcher& watcher) const override;
  Status Rejoin(const TargetPlace& target, const std::string& keptId,
                Watcher& watcher) const override;
  Status CleanUp(const TargetPlace& target, Watcher& watcher) const override;

 private:
  // The two halves of a snapshot that is a copy: all bytes are beside the target's, and, once they
  // are on disk, among its snapshots.
  Status CopyBytes(const TargetPlace& target, const std::string& snapId, int sourceFd, int ownFd,
                   Watcher& watcher) const;
  Status SettleCopy(const TargetPlace& target, const std::string& snapId, int ownFd,
                    int snapshotsFd, Local::WriteBack& writeBack) const;
  // Makes the new entry `snapId` of the directory `tmpFd` what the target is, telling the digests
  // of its files, which may be null.
  Status CopyTree(const TargetPlace& target, const std::string& snapId, int sourceFd, int ownFd,
                  int tmpFd, Local::DigestWriter* digests, Watcher& watcher) const;
  // Opens and checks what a cut needs of a member on this engine's volume.
  Status AddToCut(const CutMember& member, Watcher& watcher, Local::CutPlan& plan) const;
  // Good when what is in the target's directory of an area can be removed: nothing is mounted
  // there, and no subvolume is nested in what is there.
  Status CheckArea(int ownFd, const char* area, const TargetPlace& target) const;
  // Moves a new target from its temporary directory into its place, durably.
  // `topFlags` are set on its directory then.
  Status Publish(int volumeFd, int ownFd, int tmpFd, const TargetPlace& target,
                 unsigned topFlags = 0) const;
  // Makes the new entry `name` of `toFd` what a snapshot holds, open to changes. It is not known to
  // be on disk yet. Flags of its top with which it could not be moved are in `topFlags` instead.
  Status CopyFromSnapshot(const TargetPlace& target, const std::string& snapId, int ownFd, int toFd,
                          const char* name, unsigned& topFlags, Watch& watch) const;

  Local::VolumeDir dir_;
};

}  // namespace VrelDR
