#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/status.h"
#include "engine/users_seen.h"
#include "engine/watcher.h"
#include "foundation/volume_identity.h"
#include "vreldr/place_use.h"
#include "vreldr/target.h"

namespace VrelDR {

// What an engine says of its volume.
struct VolumeDescription {
  std::string method;         // how a snapshot is made
  bool is_atomic = false;     // a snapshot is of one instant although somebody writes
  bool is_immutable = false;  // the system refuses to change a snapshot's bytes
  std::uint64_t size_bytes = 0;
  std::uint64_t free_bytes = 0;
};

using VrelHost::VolumeIdentity;

// What tells whether a volume is the one that it is taken for.
struct VolumeSight {
  std::string file_system;                 // that it is on now
  bool has_identity = false;               // something stands where its identity does
  std::optional<VolumeIdentity> identity;  // unless that is damaged
  bool has_own = false;                    // something of ours, perhaps of an earlier version
  bool is_empty = false;                   // nothing of anybody's
};

// What a new target holds; see TargetSpec.
struct TargetContent {
  std::uint64_t size_bytes = 0;
  std::vector<std::string> sources;
};

// A target as its volume's engine knows it. By the locator alone the engine finds it: it gave that
// when it prepared the target's place, and the target's record keeps it.
struct TargetPlace {
  std::string id;  // for messages
  int type = 0;
  std::string locator;
};

// What is asked of a target, and of one of its snapshots unless `snap_id` is empty, and the answer.
struct TargetSight {
  TargetPlace place;
  std::string snap_id;
  Status status;              // why they could not be asked
  bool has_target = false;    // as FindTarget tells
  bool has_snapshot = false;  // with all its data, as ListSnapshots tells
};

// A target may have thousands, in no order.
using SnapshotIds = std::unordered_set<std::string>;

class EngineCut;
struct CutMember;

enum class Manner {
  kOrderly,  // the other side has given up its part
  kForced,   // whatever the other side is: nobody could ask it, or the pair is given up
};

// The bytes of one volume's targets and their snapshots, which are one side of a plan. An engine
// knows no records and no plans, takes no locks and no decisions: whoever calls it has recorded
// what it is about to do, and makes sure that nobody else changes the same target meanwhile.
// Targets and snapshots are named by identifiers that were checked before (IsAllowedId).
//
// What a call made is on disk when it returns, and every call may be made again; one that makes
// something fails when that is there whole. What a crash or a failure leaves of a call is removed
// by CleanUp together with RemoveSnapshot or RemoveTarget of the thing that was made, and what is
// left of a shipment by the link's Drop.
//
// Every call fails with kErrVolumeMissing when the volume is known not to be there, and with
// kErrUnreachable when that could not be found out in time: neither says anything of the targets.
// Several threads may call one engine at a time.
class StorageEngine {
 public:
  virtual ~StorageEngine() = default;

  virtual Status Describe(VolumeDescription& description, Watcher& watcher) const = 0;
  // Looks at the volume whatever identity is expected of it.
  virtual Status Look(VolumeSight& sight, Watcher& watcher) const = 0;
  // Gives the volume an identity, on disk when the call returns. One that it has is replaced when
  // `anew`; otherwise the same one is fine and another is kErrExists.
  virtual Status Mark(const VolumeIdentity& identity, bool anew, Watcher& watcher) const = 0;
  // From now on every call but these two fails with kErrVolumeMissing, before it does anything,
  // unless the volume has this identity and is on the file system that it names.
  virtual void Expect(const VolumeIdentity& identity) = 0;
  // Good when the volume can be reached and, as far as can be told beforehand, be written.
  virtual Status CheckWritable(Watcher& watcher) const = 0;

  // Where the target's and a snapshot's bytes are for whoever uses them. That something is there
  // does not say that it is whole.
  virtual std::string GetTargetPath(const TargetPlace& place) const = 0;
  virtual std::string GetSnapshotPath(const TargetPlace& place,
                                      const std::string& snapId) const = 0;

  // Makes the volume ready to take a new target, before it is recorded, and says by `locator` where
  // it is going to be. kErrExists when there is something already.
  virtual Status PreparePlace(const Target& target, std::string& locator,
                              Watcher& watcher) const = 0;
  // Makes a target that appears whole or not at all. A failure leaves nothing in its place but what
  // was there before.
  virtual Status CreateTarget(const TargetPlace& place, const TargetContent& content,
                              Watcher& watcher) const = 0;
  virtual Status FindTarget(const TargetPlace& place, bool& found, Watcher& watcher) const = 0;
  // Looks at many targets at once. A failure says nothing of any of them; neither does one of a
  // single target, which is in its sight, of the others. Asks for one after the other unless an
  // engine has a shorter way.
  virtual Status LookAtTargets(std::vector<TargetSight>& sights, Watcher& watcher) const;
  // Whether that can be done to the target's place without touching or losing what is no part of
  // the target: kErrUnsupported, with what is in the way and what to do. The calls ask themselves
  // before they change anything. What a snapshot leaves out is no reason against one.
  virtual Status CheckPlace(const TargetPlace& place, PlaceUse use, Watcher& watcher) const = 0;
  // Appends the paths inside the target that a snapshot leaves out, as something of another volume
  // is there.
  virtual Status FindLeftOut(const TargetPlace& place, std::vector<std::string>& paths,
                             Watcher& watcher) const = 0;
  // Adds who uses the bytes of the targets at this moment, this process excepted, and what of that
  // could not be looked at. A target that is not there is used by nobody. Changes nothing.
  virtual Status FindUsers(const std::vector<TargetPlace>& places, UsersSeen& seen,
                           Watcher& watcher) const = 0;
  // Removes the target, its snapshots and what interrupted calls left of it. Nothing there is fine.
  virtual Status RemoveTarget(const TargetPlace& place, Watcher& watcher) const = 0;

  // Takes a read-only snapshot that appears whole or not at all.
  virtual Status TakeSnapshot(const TargetPlace& place, const std::string& snapId,
                              Watcher& watcher) const = 0;
  // Adds the identifiers of the snapshots that are there with all their data.
  virtual Status ListSnapshots(const TargetPlace& place, SnapshotIds& snapIds,
                               Watcher& watcher) const = 0;
  // Removes a snapshot, also what is left of one, and one of a cut that was not taken up. Nothing
  // there is fine.
  virtual Status RemoveSnapshot(const TargetPlace& place, const std::string& snapId,
                                Watcher& watcher) const = 0;

  // A cut: snapshots of several targets that are made ready together, made as near to one instant
  // as the engine can, and appear one by one; see engine/cut.h.

  // What a cut can be of one instant over: the targets of all volumes that say the same may be in
  // one. It says it of the volume as it is now.
  virtual Status GetCutDomain(std::string& domain, Watcher& watcher) const = 0;
  // Does all that can be done before the snapshots are made. The members' engines are of this kind
  // and of one domain, and each target is there once; kErrExists when one has a snapshot of that
  // name. A failure leaves nothing but what RemoveSnapshot and CleanUp remove.
  virtual Status PrepareCut(const std::vector<CutMember>& members, Watcher& watcher,
                            std::unique_ptr<EngineCut>& cut) const = 0;
  // Lets a snapshot that a cut has made and settled appear among the target's. kErrSnapshotMissing
  // when there is none; once more is fine.
  virtual Status TakeUp(const TargetPlace& place, const std::string& snapId,
                        Watcher& watcher) const = 0;

  // Puts a snapshot's bytes in the place of the target's. A failure or a crash leaves those that
  // were there.
  virtual Status RestoreSnapshot(const TargetPlace& place, const std::string& snapId,
                                 Watcher& watcher) const = 0;
  // Makes a target of a snapshot's bytes, as CreateTarget does.
  virtual Status CloneSnapshot(const TargetPlace& place, const std::string& snapId,
                               const TargetPlace& clone, Watcher& watcher) const = 0;

  // The part that the target has in a pair. A target that was created works; quiet, it still is
  // the source; demoted, it is a replica, and an engine may refuse to take snapshots of it or
  // restore it until it is promoted. The order is always: quiesce the one, take the last snapshot,
  // demote it, promote the other. Every call is fine once more.

  // From now on nobody writes the target, as far as the system can see to that.
  virtual Status Quiesce(const TargetPlace& place, Watcher& watcher) const = 0;
  // The target, which is quiet, gives up its part. Its bytes stay.
  virtual Status Demote(const TargetPlace& place, Watcher& watcher) const = 0;
  // The target works, writable, with exactly the bytes of a snapshot, or with those it has when
  // `snapId` is empty. An engine may refuse an orderly one as long as the other side has not given
  // up its part or cannot be asked. A failure or a crash leaves the bytes that it had, or the
  // snapshot's, whole.
  virtual Status Promote(const TargetPlace& place, const std::string& snapId, Manner manner,
                         Watcher& watcher) const = 0;
  // An old source, whatever part it thinks it has, becomes the replica of who works now: nobody
  // writes it any more, and what it has then is in the snapshot `keptId` when the call returns. It
  // comes first, and may be taken though the target was demoted; a failure or a crash leaves the
  // target's bytes, with or without the snapshot. One of that name that is there whole stays.
  virtual Status Rejoin(const TargetPlace& place, const std::string& keptId,
                        Watcher& watcher) const = 0;

  // Removes what interrupted calls left of their work on the target, shipments apart.
  virtual Status CleanUp(const TargetPlace& place, Watcher& watcher) const = 0;
};

}  // namespace VrelDR
