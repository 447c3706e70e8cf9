#include "action/removal.h"
#include "command/confirm.h"
#include "groups/group_store.h"
#include "host/host.h"
#include "host/in_use.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// Finishes a removal that has begun before, of which nothing can be kept any more; nothing when
// there is none.
std::optional<Report> FinishRemoval(const std::string& id) {
  for (const VrelDR::TargetRemains& each : ListRemains()) {
    if (each.target.GetId() != id) continue;
    const Removal removal({}, {id});
    removal.Finish();
    Report report;
    report.AddText("Removed " + removal.Text() + ".");
    report.AddField({"target_id", "Target"}, id);
    removal.AddTo(report);
    return report;
  }
  return std::nullopt;
}

Report RunTargetRemove(const Arguments& args, Warnings& warnings) {
  const std::string id = args.Text("ID");
  if (const auto report = FinishRemoval(id)) return *report;
  const VrelDR::TargetEntry entry = RequireTarget(id);
  const bool withSnapshots = args.Has("--with-snapshots");
  const std::string count = Count(entry.snapshots, "snapshot");
  if (entry.snapshots > 0 && !withSnapshots) {
    throw Failure(ExitCode::kRefused, "target " + Quote(id) + " has " + count +
                                          ": delete their group snapshots first, or add "
                                          "--with-snapshots to lose them");
  }
  if (entry.is_existed) RequirePlace(id, VrelDR::PlaceUse::kRemoval);
  const InUse inUse({{id, VrelDR::PlaceUse::kRemoval}}, args);
  inUse.Require("removing target " + Quote(id));
  inUse.Warn(warnings);
  const std::vector<std::string> groups = GroupsOfTargets({id});
  if (!groups.empty()) {
    warnings.Print("target " + Quote(id) + " belongs to group " + Quote(Join(groups, ", ")) +
                   ", which can take no snapshot without it");
  }
  Confirm(args, "remove target " + Quote(id) + " with all its bytes" +
                    (entry.snapshots > 0 ? " and " + count : std::string()));
  const VrelDR::TargetManager manager;
  if (!manager.Remove(id, withSnapshots)) ThrowHostError(manager);

  Report report;
  report.AddText("Removed target " + Quote(id) + ".");
  report.AddField({"target_id", "Target"}, id);
  report.AddField({"removed_snapshot_count", "Snapshots removed"}, Json::UInt64(entry.snapshots));
  Json::Value names(Json::arrayValue);
  for (const std::string& group : groups) names.append(group);
  report.AddField({"groups", "Groups without it"}, names);
  return report;
}

}  // namespace

Verb TargetRemove() {
  return {"target remove",
          "remove a target with all its bytes",
          {"A target that has snapshots is refused without --with-snapshots. A group that has the "
           "target keeps it in its list, and takes no snapshot any more.",
           kInUse,
           "A removal that has begun is never taken back. When it fails, the same command finishes "
           "it, and then asks nothing."},
          "The target's bytes are lost, and its snapshots with --with-snapshots.",
          {Argument("ID", Value::kTarget, "the target")},
          {Flag("--with-snapshots", "remove its snapshots too"), GoOnInUse(), Yes()},
          RunTargetRemove};
}

}  // namespace drgroupctl
