#pragma once

#include "store/table.h"

// One record set for each table of the records. A call may be a step of a transaction or stand by
// itself, and returns what Table says. What is removed need not be there.
namespace VrelDR {

class TargetRecords : Table {
 public:
  explicit TargetRecords(const VrelDRCore::SqliteDB& db) : Table(db, "targets") {}

  bool ListOfAnyState(std::vector<TargetRow>& rows) const;  // by identifier
  bool GetOfAnyState(const std::string& targetId, std::optional<TargetRow>& row) const;
  bool Add(const TargetRow& row) const;
  bool SetState(const std::string& targetId, RecordState state) const {
    return Update({{"id", targetId}}, {{"state", Number(state)}});
  }
  bool SetLastSnapTime(const std::string& targetId, std::uint32_t time) const {
    return Update({{"id", targetId}}, {{"last_snap_time", Number(time)}});
  }
  bool Remove(const std::string& targetId) const { return Delete({{"id", targetId}}); }
};

// The table of snapshots seen through one of the views that lead to few of them at once, whatever
// the table has; see the schema.
class SnapshotView : Table {
 public:
  SnapshotView(const VrelDRCore::SqliteDB& db, const char* name) : Table(db, name) {}

  bool ListOfTarget(const std::string& targetId, std::vector<SnapshotRow>& rows) const;
  // Any of a cut.
  bool GetOneOfCut(const std::string& cutId, std::optional<SnapshotRow>& row) const;
  // How many whole ones the target has, which is recorded itself.
  bool Count(const std::string& targetId, std::uint64_t& count) const;
};

// The number that was given last to a snapshot.
class SequenceRecords : Table {
 public:
  explicit SequenceRecords(const VrelDRCore::SqliteDB& db) : Table(db, "snapshot_sequence") {}

  // A step of a transaction that writes.
  bool TakeNext(long& next) const;
};

class SnapshotRecords : Table {
 public:
  explicit SnapshotRecords(const VrelDRCore::SqliteDB& db)
      : Table(db, "snapshots"),
        sequence_(db),
        unfinished_(db, "unfinished_snapshots"),
        of_cuts_(db, "cut_snapshots"),
        counts_(db, "snapshot_counts") {}

  // In the order in which they were recorded.
  bool ListOfAnyState(const std::string& targetId, std::vector<SnapshotRow>& rows) const;
  bool ListUnfinished(const std::string& targetId, std::vector<SnapshotRow>& rows) const {
    return unfinished_.ListOfTarget(targetId, rows);
  }
  bool GetOfAnyState(const std::string& targetId, const std::string& snapId,
                     std::optional<SnapshotRow>& row) const;
  bool CountWhole(const std::string& targetId, std::uint64_t& count) const {
    return counts_.Count(targetId, count);
  }
  // Any of a cut.
  bool GetOneOfCut(const std::string& cutId, std::optional<SnapshotRow>& row) const {
    return of_cuts_.GetOneOfCut(cutId, row);
  }
  // A step of a transaction that writes. The sequence number that it is given is in `seq` then.
  bool Add(const std::string& targetId, const Operation::Snapshot& snapshot, RecordState state,
           long& seq) const;
  // Makes it whole, of `time`, with what the caller says of it.
  bool Finish(const std::string& targetId, const Operation::Snapshot& snapshot,
              std::uint32_t time) const;
  bool MarkDeleting(const std::string& targetId, const Operation::Snapshot& snapshot) const;
  bool Remove(const std::string& targetId, const Operation::Snapshot& snapshot) const {
    return Delete({{"target_id", targetId}, BySequence(snapshot)});
  }
  bool Remove(const std::string& targetId, const std::string& snapId) const {
    return Delete({{"target_id", targetId}, {"snap_id", snapId}});
  }
  bool RemoveAll(const std::string& targetId) const { return Delete({{"target_id", targetId}}); }

 private:
  static Equal BySequence(const Operation::Snapshot& snapshot) {
    return {"seq", Number(snapshot.sequence)};
  }

  SequenceRecords sequence_;
  SnapshotView unfinished_, of_cuts_, counts_;
};

class CutRecords : Table {
 public:
  explicit CutRecords(const VrelDRCore::SqliteDB& db) : Table(db, "cuts"), db_(db) {}

  bool Get(const std::string& cutId, std::optional<CutInfo>& row) const;
  bool Add(const CutInfo& row) const;
  // Puts it in the place of what was recorded of the cut before.
  bool Replace(const CutInfo& row) const { return Remove(row.id) && Add(row); }
  bool SetMadeBySync(const std::string& cutId) const {
    return Update({{"id", cutId}}, {{"is_made_by_sync", true}});
  }
  bool Remove(const std::string& cutId) const { return Delete({{"id", cutId}}); }
  // Those of which no other target has a snapshot.
  bool RemoveThoseAlone(const std::string& targetId) const;

 private:
  const VrelDRCore::SqliteDB& db_;
};

class VolumeRecords : Table {
 public:
  explicit VolumeRecords(const VrelDRCore::SqliteDB& db) : Table(db, "volumes") {}

  bool List(std::vector<VolumeRow>& rows) const;
  bool Replace(const VolumeRow& row) const;
};

class PlanRecords : Table {
 public:
  explicit PlanRecords(const VrelDRCore::SqliteDB& db) : Table(db, "plans") {}

  // Oldest first; the second those that have the target on one of their sides.
  bool ListOfAnyState(std::vector<PlanRow>& rows) const;
  bool SelectOfAnyState(const std::string& targetId, std::vector<PlanRow>& rows) const;
  bool GetOfAnyState(const std::string& planId, std::optional<PlanRow>& row) const;
  bool Add(const DRPlan& plan) const;  // in the state kBuilding
  bool SetState(const std::string& planId, RecordState state) const {
    return Update({{"id", planId}}, {{"state", Number(state)}});
  }
  // Makes plans whole whose DR copy is the target.
  bool FinishThoseTo(const std::string& drTargetId) const {
    return Update({{"dr_target_id", drTargetId}}, {{"state", Number(RecordState::kWhole)}});
  }
  // Status, direction and the flag of a reprotection.
  bool Change(const PlanRow& row) const;
  bool ForgetReprotection(const std::string& planId) const {
    return Update({{"id", planId}}, {{"is_reprotected", false}});
  }
  // None when `snapId` is empty. Another one has not failed yet.
  bool SetHand(const std::string& planId, const std::string& snapId) const {
    return Update({{"id", planId}}, {{"hand_snap_id", snapId}, {"hand_failures", 0}});
  }
  bool SetHandFailures(const std::string& planId, int failures) const {
    return Update({{"id", planId}}, {{"hand_failures", failures}});
  }
  bool Remove(const std::string& planId) const { return Delete({{"id", planId}}); }
};

class LockRecords : Table {
 public:
  explicit LockRecords(const VrelDRCore::SqliteDB& db) : Table(db, "retention_locks") {}

  // In the order in which they were made.
  bool List(std::vector<LockRow>& rows) const;
  bool ListOfTarget(const std::string& targetId, std::vector<LockRow>& rows) const;
  bool ListOfPlan(const std::string& planId, std::vector<LockRow>& rows) const;
  // By which the plan holds the snapshot of one target, or of both its sides; once more is fine.
  bool Add(const std::string& planId, const std::string& targetId, const std::string& snapId) const;
  bool AddBoth(const DRPlan& plan, const std::string& snapId) const;
  // On either side.
  bool Remove(const std::string& planId, const std::string& snapId) const {
    return Delete({HeldBy(planId), {"snap_id", snapId}});
  }
  bool RemoveAll(const std::string& planId) const { return Delete({HeldBy(planId)}); }

 private:
  static Equal HeldBy(const std::string& planId) { return {"locker", GetRetentionLocker(planId)}; }
};

class PendingRecords : Table {
 public:
  explicit PendingRecords(const VrelDRCore::SqliteDB& db) : Table(db, "pending_snaps") {}

  // In the order in which they were added.
  bool List(const std::string& planId, std::vector<std::string>& snapIds) const;
  // The plans of all that there are, as often as each has one.
  bool ListPlans(std::vector<std::string>& planIds) const;
  bool Add(const std::string& planId, const std::string& snapId) const {
    return Insert({{"plan_id", planId}, {"snap_id", snapId}});
  }
  bool Remove(const std::string& planId, const std::string& snapId) const {
    return Delete({{"plan_id", planId}, {"snap_id", snapId}});
  }
  bool RemoveAll(const std::string& planId) const { return Delete({{"plan_id", planId}}); }
};

class SyncRecords : Table {
 public:
  explicit SyncRecords(const VrelDRCore::SqliteDB& db) : Table(db, "sync_reports") {}

  bool Get(const std::string& planId, std::optional<SyncRow>& row) const;
  bool Replace(const std::string& planId, const SyncRow& row) const;
  bool Remove(const std::string& planId) const { return Delete({{"plan_id", planId}}); }
};

class JournalRecords : Table {
 public:
  explicit JournalRecords(const VrelDRCore::SqliteDB& db) : Table(db, "journals") {}

  bool Get(const std::string& planId, std::optional<JournalRow>& row) const;
  // All of them, with their plans.
  bool List(std::vector<std::pair<std::string, JournalRow>>& rows) const;
  bool Replace(const std::string& planId, const JournalRow& row) const;
  bool SetProgress(const std::string& planId, int progress) const {
    return Update({{"plan_id", planId}}, {{"progress", progress}});
  }
  // The operation has reached its end, with this to tell.
  bool Finish(const std::string& planId, const std::string& message) const;
  bool AskToStop(const std::string& planId) const {
    return Update({{"plan_id", planId}}, {{"is_stop_asked", true}});
  }
  bool Remove(const std::string& planId) const { return Delete({{"plan_id", planId}}); }
};

// All of them, and what takes steps in several. The database must outlive it.
struct Records {
  explicit Records(const VrelDRCore::SqliteDB& db)
      : targets(db),
        snapshots(db),
        cuts(db),
        volumes(db),
        plans(db),
        locks(db),
        pending(db),
        syncs(db),
        journals(db) {}

  // A snapshot becomes whole, of `time`, which is the target's newest.
  bool FinishSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot,
                      std::uint32_t time) const {
    return snapshots.Finish(targetId, snapshot, time) && targets.SetLastSnapTime(targetId, time);
  }
  // The plan has the snapshot in hand and holds it on the source.
  bool TakeInHand(const DRPlan& plan, const std::string& snapId) const;
  // The snapshots of a target, or one of it, with what was recorded of their cuts alone.
  bool RemoveSnapshots(const std::string& targetId) const {
    return cuts.RemoveThoseAlone(targetId) && snapshots.RemoveAll(targetId);
  }
  bool RemoveSnapshot(const std::string& targetId, const Operation::Snapshot& snapshot) const;
  // The plan with all that was recorded of it.
  bool RemovePlan(const std::string& planId) const;

  TargetRecords targets;
  SnapshotRecords snapshots;
  CutRecords cuts;
  VolumeRecords volumes;
  PlanRecords plans;
  LockRecords locks;
  PendingRecords pending;
  SyncRecords syncs;
  JournalRecords journals;
};

}  // namespace VrelDR
