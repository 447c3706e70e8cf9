#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "action/gsnap_release.h"
#include "command/confirm.h"
#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_removal.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// How many of the parts were there and are not any more.
std::size_t CountDeleted(const VrelDRGroup::GsnapshotInfo& info, const Presences& presences,
                         const std::vector<VrelDRGroup::TargetSnapshot>& left) {
  std::set<std::pair<VrelDR::Target, std::string>> stays;
  for (const auto& each : left) stays.emplace(each.target, each.tsnap_id);
  std::size_t count = 0;
  for (std::size_t i = 0; i < info.target_snapshots.size(); ++i) {
    const VrelDRGroup::TargetSnapshot& each = info.target_snapshots[i];
    const bool wasThere = presences[i] == Presence::kPresent;
    if (wasThere && stays.count({each.target, each.tsnap_id}) == 0) ++count;
  }
  return count;
}

// Throws when it is all that is left of what an interrupted restore has begun to replace.
void RequireNoUndo(const std::string& groupId, const std::string& gsnapId) {
  Group group;
  if (!ReadDefinition(GroupDirectory(groupId), group)) return;
  const LastRestore& last = group.last_restore;
  if (!last.is_unfinished || last.before_id != gsnapId) return;
  throw Failure(ExitCode::kRefused,
                "group snapshot " + Quote(gsnapId) +
                    " undoes a restore that has not come to its end: finish that by restoring " +
                    Quote(last.gsnap_id) + " again, or add --force to delete it all the same");
}

Report RunSnapshotDelete(const Arguments& args, Warnings& /*warnings*/) {
  const std::string gsnapId = args.Text("GSNAP");
  const std::string groupId = VrelDRGroup::Utils::ParseGroupId(gsnapId);
  const GroupLock lock(groupId);
  // Once target snapshots are gone their records have to go too: find out first that they can.
  RequireCatalogue(groupId, Access::kWrite);
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  const bool isForced = args.Has("--force");
  if (!isForced && info.is_user_locked) {
    throw Failure(ExitCode::kRefused, "group snapshot " + Quote(gsnapId) +
                                          " is locked: add --force to delete it all the same");
  }
  if (!isForced) RequireNoUndo(groupId, gsnapId);
  const Presences presences = AskParts(info, !isForced);
  RequireReleased({info});
  Confirm(args, "delete group snapshot " + Quote(gsnapId) + " with its " +
                    Count(info.target_snapshots.size(), "target snapshot"));
  const std::vector<VrelDRGroup::TargetSnapshot> left =
      RemoveGsnap(groupId, info, presences, isForced ? OutOfReach::kForget : OutOfReach::kFail);

  Report report;
  report.AddText("Deleted group snapshot " + Quote(gsnapId) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, gsnapId);
  report.AddField({"deleted_count", "Target snapshots deleted"},
                  Json::UInt64(CountDeleted(info, presences, left)));
  report.AddTable({"left_snapshots", "Left"},
                  {{"target_id", "LEFT ON TARGET"}, {"tsnap_id", "TARGET SNAPSHOT"}},
                  LeftRows(left));
  return report;
}

}  // namespace

Verb SnapshotDelete() {
  return {
      "snapshot delete",
      "delete a group snapshot with its target snapshots",
      {"Refused without --force when it is locked, when it undoes a restore that was interrupted, "
       "and when the host cannot tell of a target "
       "snapshot whether it exists. Refused also with it, before anything is deleted, when a plan "
       "holds one of the target snapshots as the last that arrived, sends it, or is going to.",
       "When a target snapshot cannot be deleted, the others are, the group snapshot stays listed "
       "as incomplete, and the same command can be run again. One that turns out to exist although "
       "its record is gone is named; \"target prune\" deletes it."},
      "The target snapshots are lost, then their records.",
      {Gsnap()},
      {Flag("--force", "delete it although it is locked, or forget what is out of reach"), Yes()},
      RunSnapshotDelete,
      "delete"};
}

}  // namespace drgroupctl
