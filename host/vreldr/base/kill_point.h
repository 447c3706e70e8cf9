#pragma once

#include <string_view>

namespace VrelDR {

// Steps between which a crash must lose nothing. The tests' library (see test_hook.h) ends the
// process at the one that VRELDR_KILL_POINT in the environment names, as in a crash (SIGKILL to
// itself): tests go through the whole list. Without that library a kill point does nothing.
//
// Cloning goes through the steps of creating. "copy.file" is reached after each file of a copy,
// "ship.piece" after each piece of data that is told by changes, the others once in the call they
// are named for. A step that an engine does not have is not reached there.
inline constexpr std::string_view kTakeRecorded = "take.recorded";  // record made, no bytes yet
inline constexpr std::string_view kCopyFile = "copy.file";          // one file of a tree copied
inline constexpr std::string_view kTakeCopied = "take.copied";      // all copied, not yet synced
inline constexpr std::string_view kTakeDigested = "take.digested";  // their digests written, too
inline constexpr std::string_view kTakeSynced = "take.synced";      // synced, not yet read-only
inline constexpr std::string_view kTakeDigestsPlaced = "take.digests_placed";  // synced before
inline constexpr std::string_view kTakeFrozen = "take.frozen";    // read-only below its top
inline constexpr std::string_view kTakeRenamed = "take.renamed";  // under its name
inline constexpr std::string_view kTakeWhole = "take.whole";      // bytes done, record not
inline constexpr std::string_view kTakeDone = "take.done";        // record complete
inline constexpr std::string_view kCutRecorded = "cut.recorded";  // all its snapshots, no bytes
inline constexpr std::string_view kCutTaken = "cut.taken";        // bytes there, writers released
inline constexpr std::string_view kCutSettled = "cut.settled";    // on disk, still hidden
inline constexpr std::string_view kTakeUpRenamed = "take_up.renamed";  // bytes done, record not
inline constexpr std::string_view kHandTakenUp = "hand.taken_up";      // all bytes done, no record
inline constexpr std::string_view kHandRecorded = "hand.recorded";     // all in hand, nothing sent
inline constexpr std::string_view kDeleteMarked = "delete.marked";    // record says so, bytes whole
inline constexpr std::string_view kRemoveEntry = "remove.entry";      // one entry of a tree removed
inline constexpr std::string_view kDeleteRenamed = "delete.renamed";  // no snapshot any more
inline constexpr std::string_view kDeleteDigestsGone = "delete.digests_gone";  // bytes left
inline constexpr std::string_view kDeleteBytesGone = "delete.bytes_gone";      // the record is left
inline constexpr std::string_view kDeleteDone = "delete.done";
inline constexpr std::string_view kRestoreCopied = "restore.copied";  // beside the target
inline constexpr std::string_view kRestoreSynced = "restore.synced";
inline constexpr std::string_view kRestoreExchanged = "restore.exchanged";  // in its place
inline constexpr std::string_view kRestoreDone = "restore.done";  // the old bytes are gone
inline constexpr std::string_view kShipBegun = "ship.begun";      // its place is made
inline constexpr std::string_view kShipData = "ship.data";        // some bytes were sent
inline constexpr std::string_view kShipPiece = "ship.piece";      // one more piece was told
inline constexpr std::string_view kShipSent = "ship.sent";        // all has arrived, not yet synced
inline constexpr std::string_view kShipSynced = "ship.synced";    // synced, not said to be whole
inline constexpr std::string_view kShipMarked = "ship.marked";    // said so, not yet read-only
inline constexpr std::string_view kShipDigestsPlaced = "ship.digests_placed";  // if it has some
inline constexpr std::string_view kShipFrozen = "ship.frozen";    // read-only below its top
inline constexpr std::string_view kShipRenamed = "ship.renamed";  // under its name
inline constexpr std::string_view kShipDone = "ship.done";        // nothing is left of the shipment
inline constexpr std::string_view kQuiesceKept = "quiesce.kept";  // what the user froze is known
inline constexpr std::string_view kQuiesceDone = "quiesce.done";
inline constexpr std::string_view kPromoteDone = "promote.done";  // after the steps of restoring
inline constexpr std::string_view kCreateRecorded = "create.recorded";
inline constexpr std::string_view kCreateCopied = "create.copied";
inline constexpr std::string_view kCreateSynced = "create.synced";
inline constexpr std::string_view kCreateRenamed = "create.renamed";
inline constexpr std::string_view kCreateWhole = "create.whole";
inline constexpr std::string_view kCreateDone = "create.done";
inline constexpr std::string_view kForgetMarked = "forget.marked";  // removing a target: marked
inline constexpr std::string_view kForgetSnapshotsGone = "forget.snapshots_gone";
inline constexpr std::string_view kForgetBytesGone = "forget.bytes_gone";
inline constexpr std::string_view kForgetDone = "forget.done";

// Operations on plans. They go through the steps of what they do to targets too.
inline constexpr std::string_view kSyncRecorded = "sync.recorded";  // begun, nothing done
inline constexpr std::string_view kSyncTaken = "sync.taken";        // in hand, nothing sent
inline constexpr std::string_view kSyncShipped = "sync.shipped";    // arrived, not recorded
inline constexpr std::string_view kSyncArrived = "sync.arrived";    // recorded, held on both sides
inline constexpr std::string_view kSyncReported = "sync.reported";  // the journal is left
inline constexpr std::string_view kSwitchoverQuiet = "switchover.quiet";
inline constexpr std::string_view kSwitchoverSynced = "switchover.synced";
inline constexpr std::string_view kSwitchoverDemoted = "switchover.demoted";
inline constexpr std::string_view kSwitchoverPromoted = "switchover.promoted";
inline constexpr std::string_view kSwitchoverTurned = "switchover.turned";  // the end is recorded
inline constexpr std::string_view kFailoverDemoted = "failover.demoted";
inline constexpr std::string_view kFailoverPromoted = "failover.promoted";
inline constexpr std::string_view kFailoverTurned = "failover.turned";  // the end is recorded
inline constexpr std::string_view kRevertDemoted = "revert.demoted";
inline constexpr std::string_view kRevertPromoted = "revert.promoted";
inline constexpr std::string_view kRevertTurned = "revert.turned";        // the end is recorded
inline constexpr std::string_view kReprotectKept = "reprotect.kept";      // the snapshot before it
inline constexpr std::string_view kReprotectTurned = "reprotect.turned";  // the end is recorded
inline constexpr std::string_view kPlanDeleteMarked = "plan_delete.marked";
inline constexpr std::string_view kPlanDeletePromoted = "plan_delete.promoted";
inline constexpr std::string_view kPlanDeleteDone = "plan_delete.done";
inline constexpr std::string_view kDropBytesGone = "drop.bytes_gone";  // the record is left
inline constexpr std::string_view kDropDone = "drop.done";

// Holding the writers, in the process that has them held.
inline constexpr std::string_view kHoldGuarded = "hold.guarded";  // the guardian is there
inline constexpr std::string_view kHoldFrozen = "hold.frozen";    // all stand still
inline constexpr std::string_view kHoldThawed = "hold.thawed";    // all go on

// Making a host, a volume's identity, and bringing old records up to date.
inline constexpr std::string_view kHostMarked = "host.marked";  // said to be made, nothing there
inline constexpr std::string_view kHostMovedAside = "host.moved_aside";  // one damaged file of old
inline constexpr std::string_view kHostIdentified = "host.identified";   // no records yet
inline constexpr std::string_view kHostRecordsBuilt = "host.records_built";  // not in their place
inline constexpr std::string_view kHostRecorded = "host.recorded";  // still said to be made
inline constexpr std::string_view kHostMade = "host.made";
inline constexpr std::string_view kRecordsUpgrading = "records.upgrading";  // not committed
inline constexpr std::string_view kRecordsUpgraded = "records.upgraded";
inline constexpr std::string_view kVolumeOwnMade = "volume.own_made";  // no identity yet
inline constexpr std::string_view kVolumeWritten = "volume.written";   // not in its place
inline constexpr std::string_view kVolumePlaced = "volume.placed";     // not synced
inline constexpr std::string_view kVolumeMarked = "volume.marked";     // the record is left
inline constexpr std::string_view kVolumeRecorded = "volume.recorded";

// Ends the process at once when a test wants it to end at `step`.
void KillPoint(std::string_view step);

}  // namespace VrelDR
