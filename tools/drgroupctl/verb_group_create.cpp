#include <unistd.h>
#include <vreldrcore/file.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <system_error>

#include "catalogue.h"
#include "console.h"
#include "failure.h"
#include "group_store.h"
#include "host.h"
#include "text.h"
#include "undo.h"
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

// Whether `dir` holds the same group already, left by an interrupted creation or by a lost link.
// Throws when it holds anything else of a group.
bool HoldsSameGroup(const Group& group) {
  const std::string& dir = group.directory;
  Group found;
  if (!ReadDefinition(dir, found)) {
    std::error_code error;
    if (fs::symlink_status(DatabasePath(dir), error).type() == fs::file_type::not_found) {
      return false;
    }
    throw Failure(ExitCode::kRefused, "directory " + Quote(dir) +
                                          " holds the catalogue of an unknown group: choose "
                                          "another directory");
  }
  if (found.id != group.id) {
    throw Failure(ExitCode::kRefused, "directory " + Quote(dir) + " belongs to group " +
                                          Quote(found.id) + ": choose another directory");
  }
  if (found.targets != group.targets) {
    throw Failure(ExitCode::kRefused, "directory " + Quote(dir) +
                                          " holds this group already, with other targets: name "
                                          "the targets that " +
                                          Quote(DefinitionPath(dir)) +
                                          " has, or choose another directory");
  }
  return true;
}

[[noreturn]] void ThrowCannotMake(const std::string& dir) {
  throw Failure(ExitCode::kStorage, "cannot make the directory " + Quote(dir) + ": " +
                                        std::generic_category().message(errno) +
                                        "; make it, or see to what is in its way");
}

// Makes `dir` and what is missing above it. What was made goes again with `undo`.
void MakeDirectory(const std::string& dir, Undo& undo) {
  std::vector<std::string> missing;
  std::error_code error;
  for (fs::path each = dir; !each.empty() && !fs::exists(each, error); each = each.parent_path()) {
    missing.push_back(each);
  }
  undo.Add([missing] {
    for (const std::string& each : missing) rmdir(each.c_str());
  });
  if (!VrelDRCore::File::CreateDir(dir, 0755)) ThrowCannotMake(dir);
}

}  // namespace

Report GroupCreate(const Arguments& args) {
  Group group{args.Text("ID"), {}, {}};
  group.targets = FindTargets(args.List("--target"));
  group.directory = ChooseDirectory(args, group.id);

  // The link directory is the group's lock. One without a link was left by an interrupted creation.
  const std::string linkDir = LinkDirectory(group.id);
  if (!VrelDRCore::File::CreateDir(linkDir, 0755)) ThrowCannotMake(linkDir);
  const GroupLock lock(group.id);
  std::error_code error;
  if (fs::symlink_status(LinkPath(group.id), error).type() != fs::file_type::not_found) {
    throw Failure(ExitCode::kRefused, "group " + Quote(group.id) +
                                          " exists already: choose another identifier, or see "
                                          "\"drgroupctl group show\"");
  }

  Undo undo;
  undo.Add([&linkDir] { rmdir(linkDir.c_str()); });
  MakeDirectory(group.directory, undo);
  if (!HoldsSameGroup(group)) {
    undo.Add([&group] { unlink(DefinitionPath(group.directory).c_str()); });
    WriteDefinition(group);
  }
  const bool isNew = !VrelDRGroup::DRGroupDB::Get(group.directory).IsExisted();
  undo.Add([&group, isNew] {
    unlink(LinkPath(group.id).c_str());
    if (isNew) VrelDRGroup::DRGroupDB::Clear(group.directory, "");
  });
  int err = 0;
  std::string said;
  bool made = false;
  {
    const StderrCapture capture;
    made = VrelDRGroup::Utils::InitDRGroupDB(group.directory, group.id, err, true);
    said = capture.FirstLine();
  }
  if (!made) {
    const std::string about = "group " + Quote(group.id) + ": cannot make its catalogue: ";
    if (const auto problem = ExamineScript()) throw Failure(problem->code, about + problem->text);
    throw Failure(ExitCode::kCatalogue,
                  about + (said.empty() ? "check the permissions of " + Quote(LinkRoot()) +
                                              " and " + Quote(group.directory)
                                        : said));
  }
  undo.Dismiss();

  Report report;
  report.AddText("Created group " + Quote(group.id) + ".");
  report.AddField({"group_id", "Group"}, group.id);
  report.AddField({"directory", "Directory"}, group.directory);
  report.AddField({"target_count", "Targets"}, Json::UInt64(group.targets.size()));
  return report;
}

}  // namespace drgroupctl
