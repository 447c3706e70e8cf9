#include <filesystem>
#include <set>
#include <system_error>

#include "failure.h"
#include "group_creation.h"
#include "group_store.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace fs = std::filesystem;

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
  // What becomes of the path: the text of a symbolic link.
  constexpr std::size_t kLongestPath = 4000;
  if (!args.Has("--dir")) return DefaultDirectory(groupId);
  const std::string given = args.Text("--dir");
  std::error_code error;
  const fs::path path = fs::absolute(given, error).lexically_normal();
  std::string dir = path.has_filename() ? path : path.parent_path();
  if (given.empty() || error || dir.size() > kLongestPath || Printable(dir) != dir) {
    throw Failure(ExitCode::kUsage, "--dir " + Quote(given.substr(0, 80)) +
                                        ": give the path of a directory without control "
                                        "characters and shorter than 4000 bytes");
  }
  const std::string root = fs::weakly_canonical(LinkRoot(), error).string() + "/";
  if ((fs::weakly_canonical(dir, error).string() + "/").starts_with(root)) {
    throw Failure(ExitCode::kUsage, "--dir " + Quote(given) + ": " + Quote(root) +
                                        " is for the links to databases; choose another directory");
  }
  return dir;
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
