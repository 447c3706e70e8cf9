#include <algorithm>

#include "action/take_out.h"
#include "groups/catalogue_view.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

const VrelDRGroup::TargetSnapshot& RequirePart(const VrelDRGroup::GsnapshotInfo& info,
                                               const std::string& target) {
  const auto part = std::ranges::find_if(
      info.target_snapshots, [&](const auto& each) { return each.target.GetId() == target; });
  if (part == info.target_snapshots.end()) {
    throw Failure(ExitCode::kNotFound, "group snapshot " + Quote(info.gsnap_id) +
                                           " has no snapshot of target " + Quote(target) +
                                           ": \"drgroupctl snapshot show\" shows which it has");
  }
  if (part->target.GetType() == VrelDR::kTargetLun) {
    throw Failure(ExitCode::kRefused,
                  "target " + Quote(target) +
                      " is a LUN, which has no files: \"drgroupctl snapshot clone\" makes a copy "
                      "that can be attached");
  }
  return *part;
}

Report RunSnapshotGet(const Arguments& args, Warnings& /*warnings*/) {
  const VrelDRGroup::GsnapshotInfo info = RequireGsnap(args.Text("GSNAP"));
  const std::string target = args.Text("TARGET");
  const VrelDRGroup::TargetSnapshot& part = RequirePart(info, target);
  const SnapshotState state = AskSnapshot(part.target, part.tsnap_id);
  if (state.presence != Presence::kPresent) {
    throw Failure(FromHostError(state.error), "group snapshot " + Quote(info.gsnap_id) +
                                                  ": target " + Quote(target) + ": " +
                                                  state.problem);
  }
  TakeOut(state.path, args.Text("PATH"), args.Text("DEST"), args.Has("--force"));
  Report report;
  report.AddText("Took " + Quote(args.Text("PATH")) + " of target " + Quote(target) + " out to " +
                 Quote(args.Text("DEST")) + ".");
  report.AddField({"gsnap_id", "Snapshot"}, info.gsnap_id);
  report.AddField({"target_id", "Target"}, target);
  report.AddField({"path", "Path"}, args.Text("PATH"));
  report.AddField({"destination", "Destination"}, args.Text("DEST"));
  return report;
}

}  // namespace

Verb SnapshotGet() {
  return {
      "snapshot get",
      "take a file or directory out of a group snapshot",
      {"PATH is that of a file, or of a directory with all in it, from the top of a share or "
       "guest. "
       "It comes with its mode, owner, times, holes, access lists and extended attributes, as far "
       "as the file system of DEST and the caller's rights allow. Symbolic links come as links, "
       "and "
       "are never followed on the way to PATH. A LUN has no files and is refused.",
       "DEST is the whole copy and on disk, or is not there at all: it is made beside it, in a "
       "directory called .drgroupctl-get-XXXXXX, which stays when the process is killed and can be "
       "removed. What is at DEST already is refused; with --force the two change places in one "
       "step "
       "and the old one is removed."},
      "Adds DEST; with --force what was there is lost.",
      {Gsnap(), Argument("TARGET", Value::kTarget, "the target that has it"),
       Argument("PATH", Value::kText, "what to take out, from the top of the target"),
       Argument("DEST", Value::kPath, "where to, with the name that it gets")},
      {Flag("--force", "replace what is at DEST")},
      RunSnapshotGet};
}

}  // namespace drgroupctl
