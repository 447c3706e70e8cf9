#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/quiesce.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"

namespace VrelDR {

// What the snapshots of a cut have in common. Kept on disk: never change a value.
enum class CutGrade : int {
  kNone = 0,         // not of one instant
  kWritersHeld = 1,  // who writes was held while they were made, as far as the host was told who
  kOneInstant = 2,   // of one instant, whoever writes and however; proven
};

// How a cut went.
struct VREL_API CutInfo {
  std::string id;
  int members = 0;
  CutGrade grade = CutGrade::kNone;
  bool is_app_consistent = false;  // applications had written their state before
  std::string method;              // for people
  std::uint32_t skew_ms = 0;  // from the first snapshot's beginning to the last one's end; 0 when
                              // all are of one instant
  std::uint32_t held_ms = 0;  // for which writers were held; 0 when nobody was
  bool is_made_by_sync = false;  // a sync has made the group snapshots of it, see Cut::PutInHand
};

class TargetCut;

// Snapshots of several targets of this node that are made together, as near to one instant as their
// volumes can, and then taken up one by one: TargetOperation::TakeSnapshot, and a sync, of a target
// that a cut of this process has prepared takes up the cut's snapshot instead of taking a new one.
// PutInHand has the syncs of all its targets send it, whatever becomes of this process.
//
// From Prepare on the cut keeps the right to change each of its targets until its snapshot was
// taken up, or the cut goes: anything else that would change it is refused with kErrBusy, in this
// process and in others. Snapshots that nobody took up go with the object, or, after a crash, with
// the next change of their target; nobody has seen them. A process that was forked off has nothing
// of a cut. One object belongs to one thread; its snapshots are taken up by any.
class VREL_API Cut : public DRErrRecorder {
 public:
  Cut();
  ~Cut() override;
  Cut(const Cut&) = delete;
  Cut& operator=(const Cut&) = delete;

  // Makes the snapshots of all targets, each named once; may be called once. They have one time,
  // later than that of any snapshot of any of them. Who writes is held by the means, unless the
  // snapshots prove to be of one instant without that; to have applications write their state they
  // always are. Fails with the first target that does not go along, and then leaves nothing:
  // kErrBusy when somebody still works on it after five seconds, kErrNotHeld when the writers did
  // not stand still all the time.
  bool Prepare(const std::vector<Target>& targets, const QuiesceMeans& means = {});
  // Puts the cut's snapshots in hand of these plans, of each of which one of the targets is the
  // source: in one transaction, held by the plans' retention locks. A snapshot that nobody has
  // taken up is taken up with `meta`; one that TakeSnapshot has stays as it is. As long as the
  // object lives, the PlanSync of these plans in this process sends that snapshot and takes none;
  // any later one goes on with it before it takes its own. `isMadeBySync` says that group snapshots
  // are made of the cut that may go when nobody needs them.
  //
  // Fails with the first plan that does not go along and then puts nothing in hand, and what was
  // not taken up before is gone: kErrBusy when somebody works on it or its source, kErrPlanState
  // when it has something else in hand or does not replicate, kErrSnapshotMissing when its source's
  // snapshot is not there any more, kErrBadArgument when its source is no target of the cut.
  bool PutInHand(const std::vector<std::string>& planIds, const Operation::SnapshotMeta& meta,
                 bool isMadeBySync);
  // Empty before Prepare has succeeded.
  const CutInfo& GetInfo() const { return info_; }
  // Writers that were held and could not be let go on, a line for each, also when Prepare failed.
  const std::vector<std::string>& GetTroubles() const { return troubles_; }

 private:
  CutInfo info_;
  std::vector<std::string> troubles_;
  std::unique_ptr<TargetCut> cut_;
};

// What is recorded of cuts whose snapshots are there, by Snapshot::cut_id.
class VREL_API CutReporter : public DRErrRecorder {
 public:
  // False with code 0 when nothing is recorded under this identifier; false with another code when
  // that could not be found out.
  bool Find(const std::string& cutId, CutInfo& info) const;
};

}  // namespace VrelDR
