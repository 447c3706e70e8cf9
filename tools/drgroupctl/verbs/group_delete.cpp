#include <unistd.h>
#include <vreldr/target_operation.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "action/group_action.h"
#include "action/gsnap_release.h"
#include "command/confirm.h"
#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/file_write.h"
#include "groups/group_link.h"
#include "groups/group_store.h"
#include "groups/gsnap_removal.h"
#include "groups/history.h"
#include "groups/kill_point.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// What is to go with a group.
struct Contents {
  std::string directory;  // empty when the group's link is no use
  std::vector<VrelDRGroup::GsnapshotInfo> gsnaps;
  // Every target snapshot that the catalogue records or, when it is no use, that exists on the
  // group's targets and no other group records.
  std::vector<VrelDRGroup::TargetSnapshot> snapshots;
  std::string problem;  // why the catalogue is no use; empty when it is sound
};

// What can be found out of a group whose catalogue is no use.
void LookAtTargets(Warnings& warnings, const std::string& groupId, Contents& contents) {
  Group group;
  try {
    group = LoadGroup(groupId);
  } catch (const Failure& failure) {
    contents.problem = failure.message;
    return;
  }
  std::vector<std::set<std::string>> found;
  std::set<std::string> all;
  for (const VrelDR::Target& target : group.targets) {
    std::set<std::string>& ids = found.emplace_back();
    const VrelDR::TargetOperation operation(target);
    if (!operation.ListSnapshotIds(ids)) {
      warnings.Print("which snapshots stay on target " + Quote(target.GetId()) +
                     " cannot be told: " + HostMessage(operation));
    }
    all.insert(ids.begin(), ids.end());
  }
  const std::set<std::string> known = RecordedAmong(std::move(all));
  for (std::size_t i = 0; i < found.size(); ++i) {
    for (const std::string& id : found[i]) {
      if (known.count(id) == 0) contents.snapshots.emplace_back(group.targets[i], id);
    }
  }
}

// Throws when the group's database cannot be reached at all, which says nothing of what is in it.
Contents LookAt(Warnings& warnings, const std::string& groupId) {
  Contents contents;
  try {
    contents.directory = GroupDirectory(groupId);
    if (IsDeletedUpToItsLink(contents.directory)) return contents;
    RequireCatalogue(groupId, Access::kWrite);
    for (const auto& each : ListGsnaps(groupId, false)) {
      contents.gsnaps.push_back(RequireGsnap(each.gsnap_id));
    }
    for (const auto& each : RecordedSnapshots(groupId)) contents.snapshots.push_back(each);
  } catch (const Failure& failure) {
    if (failure.code != ExitCode::kCatalogue) throw;
    contents.problem = failure.message;
    LookAtTargets(warnings, groupId, contents);
  }
  return contents;
}

// What the link leads to may be another group's, or the group's by another name: none of it may go,
// with --force neither.
void RefuseAstray(const std::string& groupId) {
  if (const auto from = RenamedFrom(groupId)) throw UnfinishedRenaming(*from, groupId);
  try {
    GroupDirectory(groupId);
  } catch (const Failure&) {  // then it leads nowhere
    return;
  }
  CheckOwner(groupId);
}

void RefuseWithoutForce(const std::string& groupId, const Contents& contents) {
  if (!contents.problem.empty()) {
    throw Failure(
        ExitCode::kCatalogue,
        contents.problem + (contents.directory.empty()
                                ? "; with --force what is left of its name is removed instead"
                                : "; or add --force to give the catalogue up, which leaves the "
                                  "target snapshots of the group on their targets"));
  }
  if (!contents.gsnaps.empty() || !contents.snapshots.empty()) {
    throw Failure(ExitCode::kRefused,
                  "group " + Quote(groupId) + " has " +
                      Count(contents.gsnaps.size(), "group snapshot") + " and " +
                      Count(contents.snapshots.size(), "target snapshot") +
                      ": delete them first, or add --force to delete the group snapshots with it, "
                      "locked ones too");
  }
}

Failure CannotRemove(const std::string& groupId, const std::string& path, const std::string& why) {
  return Failure(ExitCode::kStorage, "group " + Quote(groupId) + ": cannot remove " + Quote(path) +
                                         ": " + why + "; delete the group again");
}

void RequireGone(const std::string& groupId, const std::string& path) {
  std::error_code error;
  if (std::filesystem::symlink_status(path, error).type() !=
      std::filesystem::file_type::not_found) {
    throw CannotRemove(groupId, path, "check its permissions and its file system");
  }
}

// Removes the database and sets the definition aside, which tells that the rest is to go too.
void RemoveDatabase(const std::string& groupId, const std::string& dir) {
  const std::string mark = DeletionPath(dir);
  int error = rename(DefinitionPath(dir).c_str(), mark.c_str()) == 0 ? 0 : errno;
  if (error == 0) error = SyncDirectory(dir);
  if (error == ENOENT) error = WriteFileAtomically(mark, "{}\n");
  if (error == ENOENT || error == ENOTDIR) return;  // nothing can be where no directory is
  if (error != 0) {
    throw CannotRemove(groupId, DefinitionPath(dir), std::generic_category().message(error));
  }
  KillPoint(kDeleteBegun);
  VrelDRGroup::DRGroupDB::Clear(dir, "");
  RequireGone(groupId, DatabasePath(dir));
  error = SyncDirectory(dir);
  if (error != 0) {
    throw CannotRemove(groupId, DatabasePath(dir), std::generic_category().message(error));
  }
  KillPoint(kDeleteCleared);
}

// Removes the group's database, link and definition, each on disk before the next. The link goes
// after the data, so that the group is listed, and can be deleted again, until all of it is gone.
void RemoveStore(const std::string& groupId, const std::string& dir) {
  if (!dir.empty()) RemoveDatabase(groupId, dir);
  VrelDRGroup::DRGroupDB::Clear("", groupId);
  RequireGone(groupId, LinkDirectory(groupId));
  if (const int error = SyncDirectory(LinkRoot())) {
    throw Failure(ExitCode::kStorage,
                  "group " + Quote(groupId) + " is deleted, but that may not be on disk: " +
                      Quote(LinkRoot()) + ": " + std::generic_category().message(error) +
                      "; see to its file system, then to \"drgroupctl group list\"");
  }
  KillPoint(kDeleteUnlinked);
  if (dir.empty()) return;
  for (const auto& files : {HistoryFiles(dir), ScheduleFiles(dir)}) {
    for (const std::string& each : files) unlink(each.c_str());
  }
  unlink(DeletionPath(dir).c_str());
  try {
    // A directory that the user chose is the user's. One of the host keeps its name when the group
    // is renamed.
    const std::filesystem::path own = DefaultDirectory(groupId);
    if (std::filesystem::path(dir).parent_path() == own.parent_path()) rmdir(dir.c_str());
  } catch (const Failure&) {  // without a configuration there is no such directory
  }
}

// A failure tells how many are gone. `presences` says of each what the host has said of its parts.
void RemoveGsnaps(const std::string& groupId, const std::vector<VrelDRGroup::GsnapshotInfo>& gsnaps,
                  const std::vector<Presences>& presences) {
  std::size_t count = 0;
  try {
    for (const VrelDRGroup::GsnapshotInfo& each : gsnaps) {
      RemoveGsnap(groupId, each, presences[count], OutOfReach::kFail);
      ++count;
    }
  } catch (Failure& failure) {
    failure.message = "group " + Quote(groupId) + " was not deleted; " + std::to_string(count) +
                      " of its " + Count(gsnaps.size(), "group snapshot") +
                      " were: " + failure.message;
    throw;
  }
}

// Those of the target snapshots that are no part of a group snapshot that was deleted with all of
// its parts.
std::vector<VrelDRGroup::TargetSnapshot> NotDeleted(const Contents& contents) {
  std::set<std::pair<VrelDR::Target, std::string>> deleted;
  for (const VrelDRGroup::GsnapshotInfo& gsnap : contents.gsnaps) {
    for (const auto& each : gsnap.target_snapshots) deleted.emplace(each.target, each.tsnap_id);
  }
  std::vector<VrelDRGroup::TargetSnapshot> others;
  std::copy_if(contents.snapshots.begin(), contents.snapshots.end(), std::back_inserter(others),
               [&deleted](const auto& each) {
                 return deleted.count({each.target, each.tsnap_id}) == 0;
               });
  return others;
}

Report RunGroupDelete(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  const ActionLock lock(groupId);
  RefuseAstray(groupId);
  const Contents contents = LookAt(warnings, groupId);
  if (!args.Has("--force")) RefuseWithoutForce(groupId, contents);
  std::vector<Presences> presences;
  presences.reserve(contents.gsnaps.size());
  for (const VrelDRGroup::GsnapshotInfo& each : contents.gsnaps) {
    presences.push_back(AskParts(each, true));
  }
  RequireReleased(contents.gsnaps);
  if (!contents.problem.empty()) warnings.Print(contents.problem);
  Confirm(args, "delete group " + Quote(groupId) + " with its catalogue" +
                    (contents.gsnaps.empty()
                         ? std::string()
                         : " and its " + Count(contents.gsnaps.size(), "group snapshot")));
  RemoveGsnaps(groupId, contents.gsnaps, presences);
  RemoveStore(groupId, contents.directory);

  Report report;
  report.AddText("Deleted group " + Quote(groupId) + ". Its targets stay.");
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"deleted_gsnap_count", "Group snapshots deleted"},
                  Json::UInt64(contents.gsnaps.size()));
  report.AddTable({"left_snapshots", "Left"},
                  {{"target_id", "LEFT ON TARGET"}, {"tsnap_id", "TARGET SNAPSHOT"}},
                  StillThere(NotDeleted(contents)));
  return report;
}

}  // namespace

Verb GroupDelete() {
  return {
      "group delete",
      "delete a group's catalogue; its targets stay",
      {"Refused while the group has group snapshots. With --force they are deleted first, locked "
       "ones too.",
       "Refused, with --force too, while a plan holds a part of one of them or is going to send "
       "it.",
       "With --force a catalogue that cannot be used is given up as well. The report names the "
       "target snapshots that stay on their targets although nothing records them any more."},
      "The group's link, catalogue and definition are lost; with --force its group snapshots too.",
      {GroupArgument("the group")},
      {Flag("--force", "delete its group snapshots too, or a catalogue that cannot be used"),
       Yes()},
      RunGroupDelete};
}

}  // namespace drgroupctl
