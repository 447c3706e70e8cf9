#include "action/gsnap_recording.h"
#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_cut.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunSnapshotSync(const Arguments& args, Warnings& /*warnings*/) {
  const std::string groupId = args.Text("GROUP");
  const GroupLock lock(groupId);
  const Group group = LoadGroup(groupId);
  RequireCatalogue(groupId, Access::kWrite);
  const ArrivedGsnap arrived = FindArrivedGsnap(group);
  // What a sync has recorded itself is what was asked for.
  if (arrived.is_recorded && !arrived.cut.info.is_made_by_sync) {
    throw Failure(ExitCode::kRefused, "group snapshot " + Quote(arrived.info.gsnap_id) +
                                          " is recorded already: nothing newer has arrived");
  }
  if (!arrived.is_recorded && !args.Has("--mixed")) RequireTogether(group, arrived);
  const VrelDRGroup::GsnapshotInfo info =
      arrived.is_recorded
          ? RequireGsnap(arrived.info.gsnap_id)
          : RecordArrived(group, arrived, args.Text("--description"), args.Has("--lock"));

  const Json::Value row = GsnapRow(info);
  Report report;
  report.AddText(arrived.is_recorded
                     ? "Group snapshot " + Quote(info.gsnap_id) +
                           " was recorded by the sync already: nothing newer has arrived."
                     : "Recorded group snapshot " + Quote(info.gsnap_id) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"name", "Name"}, row["name"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  AddCut(arrived.cut, info.cw_type, report);
  report.AddTable({"targets", "Targets"}, TargetSnapshotColumns(), TargetSnapshotRows(info));
  return report;
}

}  // namespace

Verb SnapshotSync() {
  return {"snapshot sync",
          "record what replication brought as a group snapshot",
          {"Takes no snapshot: looks up the last snapshot that has arrived for every target of the "
           "group, which is usually the group of the DR copies, and records them as one group "
           "snapshot, with which target is replicated to which. \"sync --dr-group\" does it at "
           "once; what it has recorded is left as it is. Refused while nothing newer than "
           "the last recorded one has arrived.",
           "The consistency that is recorded is that of the cut in which all of them were taken. "
           "Refused when they were not taken in one cut, as after a sync that ended half way, "
           "unless --mixed records them all the same, as unspecified.",
           "After a failure rows of some targets may stay in the catalogue without a group "
           "snapshot; the same command, or \"snapshot repair\", removes them."},
          "Adds a group snapshot to the catalogue.",
          {GroupArgument("the group")},
          {Description(), Flag("--lock", "lock it against deletion"),
           Flag("--mixed", "record snapshots that were not taken in one cut, too")},
          RunSnapshotSync};
}

}  // namespace drgroupctl
