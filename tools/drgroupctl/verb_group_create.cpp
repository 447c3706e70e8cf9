#include <set>

#include "directory_argument.h"
#include "failure.h"
#include "group_creation.h"
#include "group_store.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

// The targets that were named, with their kinds.
std::vector<VrelDR::Target> FindTargets(const std::vector<std::string>& ids) {
  std::set<std::string> seen;
  std::vector<VrelDR::Target> targets;
  for (const std::string& id : ids) {
    if (!seen.insert(id).second) {
      throw Failure(ExitCode::kUsage, "target " + Quote(id) + " is named twice: name it once");
    }
    targets.push_back(RequireTarget(id).target);
  }
  return targets;
}

// The absolute path of the group's directory, from the command line or the host's state directory.
std::string ChooseDirectory(const Arguments& args, const std::string& groupId) {
  if (!args.Has("--dir")) return DefaultDirectory(groupId);
  return DirectoryArgument("--dir", args.Text("--dir"));
}

}  // namespace

Report GroupCreate(const Arguments& args) {
  Group group{args.Text("ID"), {}, {}};
  group.targets = FindTargets(args.List("--target"));
  group.directory = ChooseDirectory(args, group.id);

  CreateGroup(group);

  Report report;
  report.AddText("Created group " + Quote(group.id) + ".");
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"directory", "Directory"}, group.directory);
  report.AddField({"target_count", "Targets"}, Json::UInt64(group.targets.size()));
  return report;
}

}  // namespace drgroupctl
