#include "action/snapshot_drop.h"
#include "output/failure.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunTargetSnapRemove(const Arguments& args, Warnings& /*warnings*/) {
  if (args.Has("SNAP") == args.Has("--orphaned")) {
    throw Failure(ExitCode::kUsage,
                  "give the snapshots to be deleted, or --orphaned for all that are "
                  "orphaned; \"drgroupctl target snap-list\" lists them");
  }
  return DropSnapshots(args, args.Text("ID"), args.List("SNAP"));
}

}  // namespace

Verb TargetSnapRemove() {
  return {"target snap-remove",
          "delete single and orphaned snapshots of a target",
          {"Deletes those that are named, or with --orphaned all that \"target snap-list\" calls "
           "orphaned. One that is named is refused, before anything is deleted, when it is locked, "
           "when a group's catalogue records it, when a plan holds it or needs it, and when there "
           "is none of that name. Refused while the catalogue of any group cannot be read. Nobody "
           "else may be taking snapshots of the target meanwhile."},
          "Snapshots of the target are lost.",
          {Argument("ID", Value::kTarget, "the target"),
           {"SNAP", Value::kText, "SNAP", "a target snapshot", false, true}},
          {Flag("--orphaned", "all that nothing claims and that carry no description"),
           Flag("--dry-run", "only show what would be deleted"), Yes()},
          RunTargetSnapRemove};
}

}  // namespace drgroupctl
