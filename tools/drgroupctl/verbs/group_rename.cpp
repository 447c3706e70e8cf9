#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "action/group_action.h"
#include "groups/catalogue.h"
#include "groups/file_write.h"
#include "groups/group_link.h"
#include "groups/group_store.h"
#include "groups/identifier_rewrite.h"
#include "groups/kill_point.h"
#include "groups/undo.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

Failure LinkFailure(const std::string& what, const std::string& path, int error) {
  return {ExitCode::kStorage, "cannot " + what + " " + Quote(path) + ": " +
                                  std::generic_category().message(error) +
                                  "; see to it and run it again"};
}

// The group behind the link `oldId`, under its old name or, after an interruption, its new one.
Group FindGroup(const std::string& oldId, const std::string& newId) {
  const std::string dir = GroupDirectory(oldId);
  Group group;
  if (!ReadDefinition(dir, group)) return LoadGroup(oldId);  // throws
  if (group.id != newId) return LoadGroup(oldId);
  return group;
}

// Takes the new name, by an empty link directory, which an interrupted run or creation may have
// left. Throws when there is a group of that name.
void Reserve(const std::string& newId) {
  const std::string dir = LinkDirectory(newId);
  if (mkdir(dir.c_str(), 0755) == 0) return;
  if (errno != EEXIST) throw LinkFailure("make the directory", dir, errno);
  std::error_code error;
  if (!fs::is_directory(fs::symlink_status(dir, error)) || !fs::is_empty(dir, error)) {
    throw Failure(ExitCode::kRefused, "group " + Quote(newId) +
                                          " exists already: choose another identifier, or see "
                                          "\"drgroupctl group show\"");
  }
}

Report RunGroupRename(const Arguments& args, Warnings& /*warnings*/) {
  const std::string oldId = args.Text("OLD");
  const std::string newId = args.Text("NEW");
  if (oldId == newId) {
    throw Failure(ExitCode::kUsage,
                  "group " + Quote(oldId) + " has that name already: give another");
  }
  const ActionLock lock(oldId);
  // Another group that is on its way to the name has it first.
  const auto from = RenamedFrom(newId);
  if (from && *from != oldId) throw UnfinishedRenaming(*from, newId);
  Group group = FindGroup(oldId, newId);
  if (const auto problem = ExamineCatalogue(oldId, Access::kWrite, kPatience)) {
    throw Failure(problem->code, "group " + Quote(oldId) + ": " + problem->text);
  }

  Undo undo;
  Reserve(newId);
  undo.Add([newDir = LinkDirectory(newId)] { rmdir(newDir.c_str()); });
  const GroupLock newLock(newId);
  Reserve(newId);  // nobody has made the group before the lock was ours
  KillPoint(kRenameReserved);
  // The definition goes first: a group whose definition has another name is known to be on its way.
  const bool isNamed = group.id == newId;
  group.id = newId;
  group.last_restore.RenameGroup(oldId, newId);
  if (!isNamed) {
    undo.Add([group, oldId, newId]() mutable {
      group.id = oldId;
      group.last_restore.RenameGroup(newId, oldId);
      try {
        WriteDefinition(group);
      } catch (const Failure&) {  // running it again finishes it, as after a crash
      }
    });
    WriteDefinition(group);
  }
  KillPoint(kRenameDefined);
  RewriteCatalogue(group.directory, oldId, newId);
  undo.Dismiss();
  KillPoint(kRenameRewritten);
  // In one step the group is found by its new name and no longer by its old one.
  if (rename(LinkDirectory(oldId).c_str(), LinkDirectory(newId).c_str()) != 0) {
    throw LinkFailure("rename the link directory", LinkDirectory(oldId), errno);
  }
  KillPoint(kRenameLinked);
  if (const int error = SyncDirectory(LinkRoot())) {
    throw LinkFailure("bring to disk the directory", LinkRoot(), error);
  }

  Report report;
  report.AddText("Renamed group " + Quote(oldId) + " to " + Quote(newId) + ".");
  report.AddField({"group_id", "Group"}, newId);
  report.AddField({"old_group_id", "Old name"}, oldId);
  report.AddField({"directory", "Directory"}, group.directory);
  return report;
}

}  // namespace

Verb GroupRename() {
  return {"group rename",
          "give a group another identifier",
          {"Its definition, every record of its catalogue and its link get the new name, and its "
           "group snapshots are called NEW-gsnap-SECONDS afterwards. The directory of the "
           "catalogue keeps its name.",
           "After an interruption the same command finishes the work; until then the group cannot "
           "be used. A failure changes nothing."},
          "The group's identifier, and with it those of its group snapshots.",
          {Argument("OLD", Value::kGroup, "the group"),
           Argument("NEW", Value::kNewGroup, "its new identifier, which no group has")},
          {},
          RunGroupRename};
}

}  // namespace drgroupctl
