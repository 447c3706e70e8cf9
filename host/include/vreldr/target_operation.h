#pragma once

#include <set>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"

namespace VrelDR {

// What can be asked of and done to one target of this node and its snapshots. Every call that fails
// records a code of ErrCode and a message; every call that succeeds records 0. One object belongs
// to one thread. Of all threads and processes one at a time changes a target: another one waits for
// it up to five seconds, and then fails with kErrBusy. A sync that sends the target's snapshots, or
// sends some to it, is in nobody's way but for a moment.
class VREL_API TargetOperation : public DRErrRecorder {
 public:
  explicit TargetOperation(const Target& target);
  TargetOperation(int type, const std::string& targetId);

  const Target& GetTarget() const { return target_; }

  // Whether the target exists. False with code 0 when it does not; false with another code when
  // that could not be found out.
  bool IsExisted() const;

  // The target's complete snapshots, oldest first. Empty on a failure.
  std::vector<Operation::Snapshot> ListSnapshots() const;
  // Adds the identifiers of the target's snapshots to `snapIds`. False on a failure.
  bool ListSnapshotIds(std::set<std::string>& snapIds) const;
  bool IsSnapshotExisted(const std::string& snapId) const;
  // The snapshot, or an empty one (time 0, no identifier) when there is none of that name.
  Operation::Snapshot GetSnapshot(const std::string& snapId) const;

  // Takes a snapshot, read-only and on disk when the call returns, and puts its identifier into
  // `snapId`. A failure or a crash leaves no part of one that could be taken for a whole one. Of a
  // target that a cut of this process has prepared it is the cut's; see vreldr/cut.h.
  bool TakeSnapshot(const Operation::SnapshotMeta& meta, std::string& snapId) const;
  // Removes a snapshot. Fails with kErrSnapshotMissing when there is none of that name, and with
  // kErrLocked while a plan holds it: the one that arrived last, the one that a sync sends, and the
  // one that it sends the difference from, on both sides.
  bool DeleteSnapshot(const std::string& snapId) const;

  // Rolls the target back to a snapshot: it holds exactly the snapshot's bytes when the call
  // returns true, and after a failure or a crash exactly what it held before. Nobody should have
  // the target open meanwhile, which is not looked at here (see target_users.h): whoever does goes
  // on with the bytes that it had.
  bool RestoreSnapshot(const std::string& snapId) const;
  // Makes a new, independent target of a snapshot's bytes, on the same volume, of the same kind and
  // named `uuid`, and puts its identifier into `cloneId`. A failure leaves nothing of it.
  bool CloneSnapshot(const std::string& snapId, const std::string& uuid,
                     std::string& cloneId) const;

 private:
  Target target_;
};

}  // namespace VrelDR
