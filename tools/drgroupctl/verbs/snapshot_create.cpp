#include "action/group_cut.h"
#include "action/gsnap_making.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "groups/gsnap_cut.h"
#include "host/copy_warning.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

constexpr char kNotMade[] = "no group snapshot was made";

Report RunSnapshotCreate(const Arguments& args, Warnings& warnings) {
  const GroupLock lock(args.Text("GROUP"));
  const Group group = LoadGroup(args.Text("GROUP"));
  const GsnapMaking making(group);
  for (const VrelDR::Target& target : group.targets) {
    RequirePlace(target.GetId(), VrelDR::PlaceUse::kSnapshot);
  }
  WarnOfMounts(warnings, group.targets);
  VrelDR::Cut cut;
  PrepareCut(group, group.targets, kNotMade, cut, warnings);
  const GsnapCut made = CutOf(cut.GetInfo());
  RequireConsistency(group, made, kNotMade, args);
  const VrelDRGroup::GsnapMeta meta(args.Text("--description"), args.Has("--lock"),
                                    ConsistencyOf(made));
  const VrelDRGroup::GsnapshotInfo info = making.Make(meta, warnings);

  WarnOfSkew(group, group.targets, cut.GetInfo(), warnings);
  const Json::Value row = GsnapRow(info);
  Report report;
  report.AddText("Created group snapshot " + Quote(info.gsnap_id) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"name", "Name"}, row["name"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  AddCut(made, info.cw_type, report);
  report.AddTable({"targets", "Targets"}, TargetSnapshotColumns(), TargetSnapshotRows(info));
  return report;
}

}  // namespace

Verb SnapshotCreate() {
  return {
      "snapshot create",
      "take a snapshot of every target of a group",
      {"Takes one snapshot of each target, all in one cut, and records them as one group "
       "snapshot. On one btrfs they are of one instant, which is proven, and nobody is held for "
       "it. Elsewhere they are when the group's writers are held, which \"group quiesce\" "
       "configures; otherwise a warning tells how far apart they are. The consistency that is "
       "recorded is what was found out: crash when one instant was proven or all writers were "
       "held, application when besides a command had the applications write their state, and "
       "unspecified otherwise.",
       "When a target fails, no group snapshot is recorded, and the snapshots that were taken "
       "of targets before it are deleted again. What cannot be deleted stays, and the message "
       "names it."},
      "Adds a snapshot to each target and a group snapshot to the catalogue.",
      {GroupArgument("the group")},
      {Description(), Flag("--lock", "lock it against deletion"),
       RequireOption("make none unless it is crash consistent, or application consistent")},
      RunSnapshotCreate,
      "snapshot"};
}

}  // namespace drgroupctl
