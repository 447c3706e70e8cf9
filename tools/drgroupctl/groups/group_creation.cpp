#include "groups/group_creation.h"

#include <unistd.h>
#include <vreldrcore/file.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include "groups/catalogue.h"
#include "groups/file_write.h"
#include "groups/group_link.h"
#include "groups/kill_point.h"
#include "groups/undo.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

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

// What an earlier, interrupted creation has made counts as little as what this one has.
void BringToDisk(const std::string& dir) {
  if (const int error = SyncUpwards(dir)) {
    throw Failure(ExitCode::kStorage, "cannot bring the directory " + Quote(dir) +
                                          " to disk: " + std::generic_category().message(error) +
                                          "; see to its file system and create the group again");
  }
}

}  // namespace

void RequireNewGroup(const std::string& groupId) {
  if (const auto from = RenamedFrom(groupId)) throw UnfinishedRenaming(*from, groupId);
  std::error_code error;
  if (fs::symlink_status(LinkPath(groupId), error).type() != fs::file_type::not_found) {
    throw Failure(ExitCode::kRefused, "group " + Quote(groupId) +
                                          " exists already: choose another identifier, or see "
                                          "\"drgroupctl group show\"");
  }
}

void CreateGroup(const Group& group) {
  // The link directory is the group's lock. One without a link was left by an interrupted creation.
  const std::string linkDir = LinkDirectory(group.id);
  if (!VrelDRCore::File::CreateDir(linkDir, 0755)) ThrowCannotMake(linkDir);
  const GroupLock lock(group.id);
  RequireNewGroup(group.id);
  KillPoint(kCreateReserved);

  Undo undo;
  undo.Add([&linkDir] { rmdir(linkDir.c_str()); });
  MakeDirectory(group.directory, undo);
  if (!HoldsSameGroup(group)) {
    undo.Add([&group] { unlink(DefinitionPath(group.directory).c_str()); });
    unlink(DeletionPath(group.directory).c_str());
    WriteDefinition(group);
  }
  KillPoint(kCreateDefined);
  // Before the link, which makes it a group and is brought to disk as it is made.
  BringToDisk(group.directory);
  BringToDisk(linkDir);
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
  KillPoint(kCreateLinked);
  undo.Dismiss();
}

}  // namespace drgroupctl
