#pragma once

#include <string_view>

namespace drgroupctl {

// Steps of the tool's own between which a crash must lose nothing. Tests end the process there, as
// at the host's.
inline constexpr std::string_view kCreateReserved = "create.reserved";    // identifier taken
inline constexpr std::string_view kCreateDefined = "create.defined";      // group.json written
inline constexpr std::string_view kCreateLinked = "create.linked";        // catalogue and link made
inline constexpr std::string_view kDeleteBegun = "delete.begun";          // group.json set aside
inline constexpr std::string_view kDeleteCleared = "delete.cleared";      // no database any more
inline constexpr std::string_view kDeleteUnlinked = "delete.unlinked";    // found no more
inline constexpr std::string_view kRenameReserved = "rename.reserved";    // new name taken
inline constexpr std::string_view kRenameDefined = "rename.defined";      // group.json says it
inline constexpr std::string_view kRenameRewritten = "rename.rewritten";  // the catalogue too
inline constexpr std::string_view kRenameLinked = "rename.linked";        // found by it
inline constexpr std::string_view kGetCopied = "get.copied";              // not by its name yet
inline constexpr std::string_view kAddDefined = "add.defined";            // group.json has it
inline constexpr std::string_view kAddProtected = "add.protected";        // and there is a plan
inline constexpr std::string_view kAddCopied = "add.copied";              // the copies, too
inline constexpr std::string_view kRemoveBegun = "remove.begun";          // nothing is out yet
inline constexpr std::string_view kRemoveCopyOut = "remove.copy_out";     // of its group
inline constexpr std::string_view kRemovePlanGone = "remove.plan_gone";   // it is a member yet
inline constexpr std::string_view kRelinkMade = "relink.made";            // the new link, beside
inline constexpr std::string_view kRelinkReplaced = "relink.replaced";    // in the old one's place
inline constexpr std::string_view kUndoMade = "undo.made";          // a group snapshot as any other
inline constexpr std::string_view kUndoRecorded = "undo.recorded";  // nothing is replaced yet
inline constexpr std::string_view kUndoRestored = "undo.restored";  // all targets are
inline constexpr std::string_view kUndoFinished = "undo.finished";  // group.json says so
inline constexpr std::string_view kPruneForgotten = "prune.forgotten";         // by one catalogue
inline constexpr std::string_view kPruneAllForgotten = "prune.all_forgotten";  // parts are there
inline constexpr std::string_view kSyncGsnapMade = "sync.gsnap_made";    // nothing is in hand yet
inline constexpr std::string_view kSyncAllArrived = "sync.all_arrived";  // at all replicas
inline constexpr std::string_view kSyncGsnapRecorded = "sync.gsnap_recorded";  // on both sides

// Ends the process at once when a test wants it to end at `step`.
void KillPoint(std::string_view step);

}  // namespace drgroupctl
