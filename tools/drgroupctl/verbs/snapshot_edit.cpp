#include <vreldrgroup/snapshot/gsnap_op.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/group_store.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunSnapshotEdit(const Arguments& args, Warnings& /*warnings*/) {
  const std::string gsnapId = args.Text("GSNAP");
  const std::string see = "; see \"drgroupctl help snapshot edit\"";
  if (args.Has("--lock") && args.Has("--unlock")) {
    throw Failure(ExitCode::kUsage, "--lock and --unlock exclude each other: give one" + see);
  }
  if (!args.Has("--description") && !args.Has("--lock") && !args.Has("--unlock") &&
      !args.Has("--consistency")) {
    throw Failure(ExitCode::kUsage, "there is nothing to change: give an option" + see);
  }
  const std::string groupId = VrelDRGroup::Utils::ParseGroupId(gsnapId);
  const GroupLock lock(groupId);
  RequireCatalogue(groupId, Access::kWrite);
  const VrelDRGroup::GsnapshotInfo before = RequireGsnap(gsnapId);
  VrelDRGroup::GsnapMeta meta = before;
  if (args.Has("--description")) meta.desc = args.Text("--description");
  if (args.Has("--lock") || args.Has("--unlock")) meta.is_user_locked = args.Has("--lock");
  if (args.Has("--consistency")) meta.cw_type = ConsistencyNumber(args.Text("--consistency"));
  if (!VrelDRGroup::Operation::GsnapshotSet(gsnapId, meta)) {
    throw CatalogueFailure(groupId, "group snapshot " + Quote(gsnapId) + " was not changed");
  }

  const Json::Value row = GsnapRow(RequireGsnap(gsnapId));
  Report report;
  report.AddText("Changed group snapshot " + Quote(gsnapId) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, row["gsnap_id"]);
  report.AddField({"is_locked", "Locked"}, row["is_locked"]);
  report.AddField({"consistency", "Consistency"}, row["consistency"]);
  report.AddField({"description", "Description"}, row["description"]);
  return report;
}

}  // namespace

Verb SnapshotEdit() {
  return {"snapshot edit",
          "change what is remembered of a group snapshot",
          {"What no option is given for stays as it is."},
          "The description, the lock and the consistency in the catalogue.",
          {Gsnap()},
          {Description(), Flag("--lock", "lock it against deletion"), Flag("--unlock", "unlock it"),
           Consistency("how consistent whoever asked for it had made the targets")},
          RunSnapshotEdit};
}

}  // namespace drgroupctl
