#include "action/snapshot_drop.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunTargetPrune(const Arguments& args, Warnings& /*warnings*/) {
  return DropSnapshots(args, args.Text("ID"), args.List("--snapshot"));
}

}  // namespace

Verb TargetPrune() {
  return {"target prune",
          "delete what no group snapshot has of a target",
          {"For what a creation, a deletion or a repair of group snapshots had to leave on the "
           "target: its message names them. With --snapshot deletes those, without it all that "
           "carry no description, as those of group snapshots, and that no group's catalogue "
           "records and no plan needs. Refused while the catalogue of any group cannot be read. "
           "Nobody else may be taking snapshots of the target meanwhile."},
          "Snapshots of the target are lost.",
          {Argument("ID", Value::kTarget, "the target")},
          {{"--snapshot", Value::kText, "SNAPSHOT", "only this target snapshot", false, true},
           Flag("--dry-run", "only show what would be deleted"),
           Yes()},
          RunTargetPrune};
}

}  // namespace drgroupctl
