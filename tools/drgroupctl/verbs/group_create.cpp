#include <filesystem>
#include <system_error>

#include "action/membership.h"
#include "groups/directory_argument.h"
#include "groups/group_creation.h"
#include "groups/group_store.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// A catalogue in a target would be rolled back and removed with it.
void RequireOutsideVolumes(const std::string& dir) {
  std::error_code error;
  const std::string path = std::filesystem::weakly_canonical(dir, error).string() + "/";
  for (const VrelDR::VolumeInfo& each : ListVolumes()) {
    const std::string where = std::filesystem::weakly_canonical(each.where, error).string() + "/";
    if (!path.starts_with(where)) continue;
    throw Failure(ExitCode::kRefused,
                  "--dir " + Quote(dir) + ": it is on volume " + Quote(each.name) +
                      ", which is for targets and snapshots; choose a directory "
                      "outside the volumes");
  }
}

// The absolute path of the group's directory, from the command line or the host's state directory.
std::string ChooseDirectory(const Arguments& args, const std::string& groupId) {
  if (!args.Has("--dir")) return DefaultDirectory(groupId);
  std::string dir = DirectoryArgument("--dir", args.Text("--dir"));
  RequireOutsideVolumes(dir);
  return dir;
}

Report RunGroupCreate(const Arguments& args, Warnings& /*warnings*/) {
  Group group{args.Text("ID"), {}, {}};
  group.targets = RequireTargets(args.List("--target"));
  RequireOneCopy(group.id, group.targets);
  group.directory = ChooseDirectory(args, group.id);

  CreateGroup(group);

  Report report;
  report.AddText("Created group " + Quote(group.id) + ".");
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"directory", "Directory"}, group.directory);
  report.AddField({"target_count", "Targets"}, Json::UInt64(group.targets.size()));
  return report;
}

}  // namespace

Verb GroupCreate() {
  return {
      "group create",
      "make a group of targets",
      {"The group's directory holds its catalogue, drgroup.db, and its definition, group.json. The "
       "host finds it through a link under the group's identifier.",
       "After an interruption the same command finishes the work. With a directory that holds the "
       "same group with the same targets already, it makes the lost link again."},
      "Adds a group: its directory, catalogue, definition and link. A failure leaves nothing of "
      "it.",
      {Argument("ID", Value::kNewGroup, "the new group's identifier")},
      {{"--target", Value::kTarget, "T", "its targets, in the order in which they are taken", true,
        true},
       {"--dir", Value::kDirectory, "DIR",
        "the directory for its catalogue; groups/ID in the host's state directory when left out"}},
      RunGroupCreate};
}

}  // namespace drgroupctl
