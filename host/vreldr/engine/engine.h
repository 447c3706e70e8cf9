#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/status.h"
#include "config/config.h"
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

// How a long call tells how far it is, and learns that it shall end.
class Watcher {
 public:
  virtual ~Watcher() = default;
  // What a shipment has done so far: `done` of `total` bytes have been looked at, `sent` of them
  // were really sent. Called several times a second while a shipment runs.
  virtual void Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) = 0;
  // Whether to go on. Asked at least four times a second by every call that is given a watcher; a
  // call that is told not to ends with kErrStopped.
  virtual bool GoesOn() = 0;
};

// The bytes of one volume's targets and their snapshots. An engine knows no records and takes no
// locks: whoever calls it has recorded what it is about to do, and makes sure that nobody else
// changes the same target meanwhile. Targets and snapshots are named by identifiers that were
// checked before (IsAllowedId).
//
// What a call made is on disk when it returns. What a crash or a failure leaves of a call is
// removed by CleanUp together with RemoveSnapshot or RemoveTarget of the thing that was made.
// Every call may fail because the volume cannot be reached.
class StorageEngine {
 public:
  virtual ~StorageEngine() = default;

  // Where the volume is, for people; no two volumes may be at one place.
  virtual std::string GetWhere() const = 0;
  virtual Status Describe(VolumeDescription& description) const = 0;
  // Looks at the volume whatever identity is expected of it.
  virtual Status Look(VolumeSight& sight) const = 0;
  // Gives the volume an identity, on disk when the call returns. One that it has is replaced when
  // `anew`; otherwise the same one is fine and another is kErrExists.
  virtual Status Mark(const VolumeIdentity& identity, bool anew) const = 0;
  // From now on every call but these two fails with kErrVolumeMissing, before it does anything,
  // unless the volume has this identity and is on the file system that it names.
  virtual void Expect(const VolumeIdentity& identity) = 0;
  // Good when the volume can be reached and, as far as can be told beforehand, be written.
  virtual Status CheckWritable() const = 0;

  // Where the target's and a snapshot's bytes are for whoever uses them.
  virtual std::string GetTargetPath(const Target& target) const = 0;
  virtual std::string GetSnapshotPath(const Target& target, const std::string& snapId) const = 0;

  // Makes the volume ready to take the target, before it is recorded. kErrExists when there is
  // something in the place that it would take.
  virtual Status PreparePlace(const Target& target) const = 0;
  // Makes a target that appears whole or not at all. A failure leaves nothing in its place but what
  // was there before.
  virtual Status CreateTarget(const Target& target, const TargetContent& content) const = 0;
  virtual Status FindTarget(const Target& target, bool& found) const = 0;
  // Whether that can be done to the target's place without touching or losing what is no part of
  // the target: kErrUnsupported, with the paths and what to do, when something is mounted in it,
  // when subvolumes are nested in it, or when a LUN's bytes are not in its own file. The calls ask
  // themselves before they change anything. What is mounted inside is no reason against a snapshot:
  // see FindMounts.
  virtual Status CheckPlace(const Target& target, PlaceUse use) const = 0;
  // Appends the paths inside the target where something is mounted. A snapshot leaves that out.
  virtual Status FindMounts(const Target& target, std::vector<std::string>& paths) const = 0;
  // Removes the target, its snapshots and what interrupted calls left of it. Nothing there is fine.
  virtual Status RemoveTarget(const Target& target) const = 0;

  // Takes a read-only snapshot that appears whole or not at all. `watcher` may be null.
  virtual Status TakeSnapshot(const Target& target, const std::string& snapId,
                              Watcher* watcher) const = 0;
  // Adds the identifiers of the snapshots that are there.
  virtual Status ListSnapshots(const Target& target, std::set<std::string>& snapIds) const = 0;
  // Removes a snapshot, also what is left of one. Nothing there is fine.
  virtual Status RemoveSnapshot(const Target& target, const std::string& snapId) const = 0;

  // Puts a snapshot's bytes in the place of the target's. A failure or a crash leaves those that
  // were there.
  virtual Status RestoreSnapshot(const Target& target, const std::string& snapId) const = 0;
  // Makes a target of a snapshot's bytes, as CreateTarget does.
  virtual Status CloneSnapshot(const Target& target, const std::string& snapId,
                               const Target& clone) const = 0;

  // Makes `replica` on the volume of `to` have the snapshot too: read-only, the same bytes, there
  // as a whole or not at all. Only what differs from `baseId`, a snapshot that both have, is sent;
  // everything when it is empty. A call that was stopped, failed or crashed leaves what has arrived
  // where only the next call for the same snapshot finds it, and that goes on from there.
  // kErrUnsupported when this engine cannot send to that one.
  virtual Status Ship(const Target& source, const std::string& snapId, const std::string& baseId,
                      const StorageEngine& to, const Target& replica, Watcher& watcher) const = 0;
  // Removes what Ship left of shipments to the target that did not come to their end, but not that
  // of `keepSnapId`, which may be empty.
  virtual Status DropShipments(const Target& replica, const std::string& keepSnapId) const = 0;

  // Makes the target's bytes unwritable, where the system can do that. Once more is fine.
  virtual Status Demote(const Target& target) const = 0;
  // Makes the target writable, with exactly the bytes of a snapshot, or with those it has when
  // `snapId` is empty. A failure or a crash leaves the bytes that it had, or the snapshot's, whole.
  // Once more is fine.
  virtual Status Promote(const Target& target, const std::string& snapId) const = 0;

  // Removes what interrupted calls left of their work on the target, shipments apart.
  virtual Status CleanUp(const Target& target) const = 0;
};

// Makes the engine that the volume's configuration names. kErrConfig when there is none of that
// name or its settings are wrong.
Status MakeEngine(const VrelHost::VolumeConfig& volume, std::unique_ptr<StorageEngine>& engine);

}  // namespace VrelDR
