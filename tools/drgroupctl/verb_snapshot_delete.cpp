#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "catalogue.h"
#include "catalogue_view.h"
#include "console.h"
#include "failure.h"
#include "group_store.h"
#include "gsnap_removal.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report SnapshotDelete(const Arguments& args) {
  const std::string gsnapId = args.Text("GSNAP");
  const std::string groupId = VrelDRGroup::Utils::ParseGroupId(gsnapId);
  const GroupLock lock(groupId);
  // Once target snapshots are gone their records have to go too: find out first that they can.
  RequireCatalogue(groupId, Access::kWrite);
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(gsnapId);
  if (!args.Has("--force")) {
    if (info.is_user_locked) {
      throw Failure(ExitCode::kRefused, "group snapshot " + Quote(gsnapId) +
                                            " is locked: add --force to delete it all the same");
    }
    CheckReachable(info);
  }
  Confirm(args, "delete group snapshot " + Quote(gsnapId) + " with its " +
                    Count(info.target_snapshots.size(), "target snapshot"));
  RemoveGsnap(groupId, info, args.Has("--force") ? OutOfReach::kForget : OutOfReach::kFail);

  const Json::Value left = StillThere(info.target_snapshots);
  Report report;
  report.AddText("Deleted group snapshot " + Quote(gsnapId) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, gsnapId);
  report.AddField({"deleted_count", "Target snapshots deleted"},
                  Json::UInt64(info.target_snapshots.size() - left.size()));
  report.AddTable({"left_snapshots", "Left"},
                  {{"target_id", "LEFT ON TARGET"}, {"tsnap_id", "TARGET SNAPSHOT"}}, left);
  return report;
}

}  // namespace drgroupctl
