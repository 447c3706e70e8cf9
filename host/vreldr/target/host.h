#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"
#include "config/config.h"
#include "engine/engine.h"
#include "engine/link.h"
#include "foundation/foundation.h"
#include "store/store.h"
#include "target/cut_parts.h"
#include "target/target_lock.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

// A volume of the configuration.
struct Volume {
  std::string name;
  std::string engine_name;
  std::string where;         // for people
  VolumeRow row = {};        // its recorded identity; empty while it has none
  bool is_admitted = false;  // may be used by this host; see AdmitVolume

  // Its engine, which is made when it is first asked for and expects the recorded identity.
  std::unique_ptr<StorageEngine> engine;
};

// Reads the configuration and what it says of volumes. kErrConfig when anything is wrong with it,
// also with one volume only.
Status OpenVolumes(VrelHost::Config& config, std::vector<Volume>& volumes);

using VrelHost::Making;

// The host as calls need it: configuration, engines and records, opened by the first Open. It is
// one thread's.
struct Host {
  VrelHost::Config config;
  std::string node_id;
  std::vector<Volume> volumes;
  std::optional<Store> store;
  // Of calls that nobody else watches.
  Watcher watcher;

  // kErrStore when there is no host, or a damaged one.
  Status Open(Making making = Making::kNever);
  // For calls that list: the same, but without a trace of a host it is good, and nothing is open.
  Status OpenIfMade();
  // A volume of the configuration; kErrVolumeMissing when there is none of that name.
  Status FindVolume(const std::string& name, Volume*& volume);
  // A volume's engine, whether or not it may be used; the host keeps it.
  StorageEngine& EngineOf(Volume& volume);
  // One that expects nothing of the volume.
  std::unique_ptr<StorageEngine> MakeEngine(const Volume& volume) const;
  // The engine of a volume that may be used; the host keeps it. kErrVolumeMissing when the volume
  // is out of reach.
  Status FindEngine(const std::string& volume, const StorageEngine*& engine);
  // The link from one volume to another, both of which need not be reached. kErrUnsupported when
  // there is none.
  Status FindLink(const std::string& from, const std::string& to, std::unique_ptr<Link>& link);
  // What is expected of a volume whose identity is recorded.
  VolumeIdentity IdentityOf(const VolumeRow& row) const {
    return {node_id, row.name, row.id, row.file_system};
  }

 private:
  Status ReadIdentities();
  const VrelHost::VolumeConfig& ConfigOf(const Volume& volume) const;
  LinkEnd EndOf(const Volume& volume) const;
};

// The host of this thread while a session lives, and a new one otherwise; see Session.
std::shared_ptr<Host> TheHost();
// What is open is of a host that is no more: the calls that follow open it anew.
void CloseTheHost();

// Says that there is no such target, and that the bytes of a recorded one are not there.
Status NoSuchTarget(const std::string& targetId);
Status BytesGone(const TargetRow& row);
// "cannot `what` target ... on volume ...", for messages.
std::string Cannot(const std::string& what, const TargetRow& row);

// Whether a volume is not there or does not answer, which says nothing of what is on it.
bool IsOutOfReach(const Status& status);

// The target as its engine knows it.
TargetPlace PlaceOf(const TargetRow& row);

// How long somebody else who works on a target is waited for. Those who have it for a moment only,
// as a sync before it sends, are in nobody's way by that.
struct Patience {
  std::chrono::milliseconds time = std::chrono::seconds(5);
  Watcher* watcher = nullptr;  // by which the waiting can be stopped; may be null
};

// One target of the host for the time of one call.
class HostTarget {
 public:
  // The host must outlive the object.
  explicit HostTarget(Host& host) : host_(host) {}

  // Opens the host and finds the target to look at it. Afterwards the target is known to be
  // recorded as whole and to have bytes; kErrTargetMissing otherwise.
  Status OpenToRead(const std::string& targetId);
  // The same, with the right to change it until the object goes; kErrBusy when somebody else still
  // has that at the end of the patience. Its volume can be written, and what interrupted calls left
  // of their work is gone, shipments apart.
  Status OpenToWrite(const std::string& targetId, const Patience& patience = {});
  // The same, to take a snapshot: of a target that a cut of this process has prepared the part that
  // nobody has taken up yet is borrowed, with the right that the cut has. What TakeSnapshotOf takes
  // is that one then.
  Status OpenToTake(const std::string& targetId, const Patience& patience = {});
  // Opens the host and takes the right to change the target, which may be recorded in any state and
  // need not have bytes.
  Status Claim(const std::string& targetId, const Patience& patience = {});
  // Gives the right to change the target to somebody else.
  TargetLock ReleaseLock() { return std::move(lock_); }
  // What OpenToTake has borrowed; null when it was nothing.
  BorrowedPart* GetPart() const { return part_.get(); }
  // Takes a record of the open host; says nothing about bytes.
  Status Adopt(const TargetRow& row);

  const TargetRow& GetRow() const { return row_; }
  const Target& GetTarget() const { return row_.target; }
  TargetPlace GetPlace() const { return PlaceOf(row_); }
  const StorageEngine& GetEngine() const { return *engine_; }
  Host& GetHost() const { return host_; }
  // For calls of the engine that nobody else watches.
  Watcher& GetWatcher() const { return host_.watcher; }
  const Store& GetStore() const { return *host_.store; }

  // The snapshots that are recorded as whole and really there, oldest first.
  Status ListSnapshots(std::vector<Operation::Snapshot>& snapshots) const;
  // One of them; empty when it has none of that name. The others are not looked at.
  Status GetSnapshot(const std::string& snapId, std::optional<Operation::Snapshot>& found) const;

  std::string Cannot(const std::string& what) const { return VrelDR::Cannot(what, row_); }

 private:
  Status FindRow(const std::string& targetId);
  Status Lock(const std::string& targetId, const Patience& patience);
  Status CheckWhole() const;
  Status FindBytes() const;

  Host& host_;
  TargetRow row_;
  const StorageEngine* engine_ = nullptr;  // of the host
  TargetLock lock_;
  std::unique_ptr<BorrowedPart> part_;
};

// The link from one target's volume to another's.
Status FindLink(const HostTarget& from, const HostTarget& to, std::unique_ptr<Link>& link);

// Whether an identifier may name a target or a snapshot: it becomes a name in a directory.
bool IsAllowedId(const std::string& id);

// Removes what a crash left of snapshots of the target that were being taken or deleted. The caller
// has the target's lock.
Status CleanUpSnapshots(const HostTarget& opened);

}  // namespace VrelDR
