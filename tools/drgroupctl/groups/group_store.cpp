#include "groups/group_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vreldrcore/json.h>
#include <vreldrgroup/db.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "groups/file_write.h"
#include "groups/group_link.h"
#include "groups/json_file.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

Failure NoSuchGroup(const std::string& groupId) {
  return Failure(ExitCode::kNotFound,
                 "there is no group " + Quote(groupId) +
                     ": name one that \"drgroupctl group list\" shows, or create it");
}

Failure BadGroup(const std::string& groupId, const std::string& problem) {
  return Failure(ExitCode::kCatalogue, "group " + Quote(groupId) + ": " + problem);
}

bool IsNothing(const std::string& path) {
  std::error_code error;
  return fs::symlink_status(path, error).type() == fs::file_type::not_found;
}

bool IsThere(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

// Takes the definition from `root`; what is wrong with it, empty when nothing is.
std::string Interpret(const Json::Value& root, Group& group) {
  using VrelDRCore::JsonUtil::Member;
  group.id = VrelDRCore::JsonUtil::AsText(Member(root, "group_id"));
  if (group.id.empty()) return "it has no text \"group_id\"";
  const Json::Value targets = Member(root, "targets");
  if (!targets.isArray() || targets.empty()) return "it has no \"targets\"";
  for (const Json::Value& each : targets) {
    VrelDR::Target target;
    if (!each.isObject() || !target.FromJson(each) || target.GetId().empty() ||
        target.GetType() < VrelDR::kTargetLun || target.GetType() > VrelDR::kTargetGuest) {
      return "one of its \"targets\" has no \"target_id\" or no \"target_type\" from 1 to 3";
    }
    group.targets.push_back(target);
    const Json::Value since = Member(each, "since");
    if (since.isNull()) continue;
    if (!since.isInt64()) return "one of its \"targets\" has a \"since\" that is not a number";
    group.since[target.GetId()] = since.asInt64();
  }
  group.changing = VrelDRCore::JsonUtil::AsText(Member(root, "changing"));
  std::string problem;
  const Json::Value quiesce = Member(root, "quiesce");
  if (!quiesce.isNull() && !group.quiesce.FromJson(quiesce, problem)) {
    return "its \"quiesce\": " + problem;
  }
  const Json::Value lastRestore = Member(root, "last_restore");
  if (!lastRestore.isNull() && !group.last_restore.FromJson(lastRestore, problem)) {
    return "its \"last_restore\": " + problem;
  }
  const Json::Value schedule = Member(root, "schedule");
  if (!schedule.isNull() && !ReadSchedule(schedule, group.schedule, problem)) {
    return "its \"schedule\": " + problem;
  }
  const Json::Value hook = Member(root, "hook");
  if (!hook.isNull() && !hook.isArray()) return "its \"hook\" is no list of words";
  for (const Json::Value& word : hook) {
    if (!word.isString()) return "its \"hook\" has a word that is no text";
    group.hook.push_back(word.asString());
  }
  const Json::Value keep = Member(root, "keep");
  if (keep.isNull()) return {};
  try {
    group.keep = ParseKeep(keep.isString() ? keep.asString() : "");
  } catch (const Failure& failure) {
    return "its \"keep\": " + failure.message;
  }
  return {};
}

// Locks a directory, unless another process has: then `error` is EWOULDBLOCK. The descriptor that
// has the lock, or -1 with an errno.
int LockDirectory(const std::string& dir, int& error) {
  const int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd != -1 && flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
  error = errno;
  if (fd != -1) close(fd);
  return -1;
}

Failure CannotLock(const std::string& groupId, const std::string& dir, int error) {
  return BadGroup(groupId, "cannot lock " + Quote(dir) + ": " +
                               std::generic_category().message(error) + "; check its permissions");
}

// Brings the directories to disk in which a group's name is found. What an interrupted run has made
// or removed there is about to be told as a fact and built upon: a power cut must not take it back.
void BringNameToDisk(const std::string& groupId) {
  for (const std::string& dir : {LinkDirectory(groupId), LinkRoot()}) {
    const int error = SyncDirectory(dir);
    // Nothing can be missing from a file system without writes.
    if (error == 0 || error == ENOENT || error == EROFS || error == EINVAL) continue;
    throw Failure(ExitCode::kStorage, "cannot bring the directory " + Quote(dir) +
                                          " to disk: " + std::generic_category().message(error) +
                                          "; see to its file system and run it again");
  }
}

}  // namespace

bool Group::Has(const std::string& targetId) const {
  return std::ranges::any_of(targets,
                             [&](const VrelDR::Target& each) { return each.GetId() == targetId; });
}

bool Group::NeedsPart(const std::string& targetId, std::int64_t gsnapTime) const {
  const auto found = since.find(targetId);
  return found == since.end() || found->second <= gsnapTime;
}

std::string LinkPath(const std::string& groupId) {
  return VrelDRGroup::DRGroupDB::GetRef(groupId).GetPath();
}

std::string LinkDirectory(const std::string& groupId) {
  return fs::path(LinkPath(groupId)).parent_path();
}

std::string LinkRoot() {
  return fs::path(LinkDirectory("group")).parent_path();
}

std::string DatabasePath(const std::string& dir) {
  return VrelDRGroup::DRGroupDB::Get(dir).GetPath();
}

std::string DefinitionPath(const std::string& dir) {
  return dir + "/group.json";
}

std::string DeletionPath(const std::string& dir) {
  return dir + "/group.deleted";
}

bool IsDeletedUpToItsLink(const std::string& dir) {
  return IsThere(DeletionPath(dir)) && IsNothing(DefinitionPath(dir)) &&
         IsNothing(DatabasePath(dir));
}

std::optional<Failure> InterruptedDeletion(const std::string& groupId, const std::string& dir) {
  if (!IsThere(DeletionPath(dir)) || !IsNothing(DefinitionPath(dir))) return std::nullopt;
  return BadGroup(
      groupId,
      "its deletion was interrupted: finish it with \"drgroupctl group delete " + groupId + "\"");
}

std::string DefaultDirectory(const std::string& groupId) {
  return StateDirectory() + "/groups/" + groupId;
}

std::vector<std::string> ListGroupIds() {
  std::vector<std::string> ids;
  std::error_code error;
  fs::directory_iterator entry(LinkRoot(), error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code ignored;
    if (entry->is_directory(ignored)) ids.push_back(entry->path().filename());
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    throw Failure(ExitCode::kFailed, "cannot list the groups in " + Quote(LinkRoot()) + ": " +
                                         error.message() + "; check its permissions");
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

std::vector<std::string> LikelyFirst(const std::vector<std::string>& likely) {
  std::vector<std::string> ids = ListGroupIds();
  std::stable_partition(ids.begin(), ids.end(), [&likely](const std::string& each) {
    return std::find(likely.begin(), likely.end(), each) != likely.end();
  });
  return ids;
}

std::string GroupDirectory(const std::string& groupId) {
  const std::string link = LinkPath(groupId);
  std::error_code error;
  if (fs::symlink_status(LinkDirectory(groupId), error).type() == fs::file_type::not_found) {
    throw NoSuchGroup(groupId);
  }
  const fs::file_status status = fs::symlink_status(link, error);
  if (status.type() == fs::file_type::not_found) {
    if (const auto from = RenamedFrom(groupId)) throw UnfinishedRenaming(*from, groupId);
    throw BadGroup(groupId, "its link " + Quote(link) +
                                " is missing, as after an interrupted \"group create\" or \"group "
                                "rename\": create the group again with the same targets, or run "
                                "\"drgroupctl group rename OLD " +
                                Printable(groupId) +
                                "\" again, with the group that was to be called so");
  }
  const fs::path target = fs::read_symlink(link, error);
  if (error || !target.is_absolute()) {
    throw BadGroup(groupId, Quote(link) +
                                " should be a link to the group's database, and is not: restore it "
                                "from a backup");
  }
  return target.parent_path();
}

bool ReadDefinition(const std::string& dir, Group& group) {
  const std::string path = DefinitionPath(dir);
  std::error_code error;
  if (IsNothing(path)) return false;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  // An empty file leaves `text` failed, and is not JSON either.
  if (!file || !fs::is_regular_file(path, error)) {
    throw Failure(ExitCode::kCatalogue, "cannot read " + Quote(path) + ": check its permissions");
  }
  text << file.rdbuf();
  Json::Value root;
  std::string problem;
  if (ParseJsonObject(text.str(), root, problem)) problem = Interpret(root, group);
  if (!problem.empty()) {
    throw Failure(ExitCode::kCatalogue,
                  Quote(path) + ": " + problem + "; restore it from a backup or correct it");
  }
  group.directory = dir;
  return true;
}

Group LoadGroup(const std::string& groupId) {
  const std::string dir = GroupDirectory(groupId);
  Group group;
  if (!ReadDefinition(dir, group)) {
    if (const auto begun = InterruptedDeletion(groupId, dir)) throw Failure(*begun);
    if (const auto astray = ExamineOwner(groupId, dir, {})) throw Failure(*astray);
    throw BadGroup(groupId, Quote(DefinitionPath(dir)) +
                                " is missing, which names its targets: restore it from a backup, "
                                "or, when another program has pointed the link there, name the "
                                "group's own directory to \"drgroupctl group relink\"");
  }
  if (const auto astray = ExamineOwner(groupId, dir, group.id)) throw Failure(*astray);
  return group;
}

void CheckOwner(const std::string& groupId) {
  const std::string dir = GroupDirectory(groupId);
  Group group;
  try {
    ReadDefinition(dir, group);
  } catch (const Failure&) {  // whoever needs the definition tells of it
    return;
  }
  if (const auto astray = ExamineOwner(groupId, dir, group.id)) throw Failure(*astray);
}

void WriteDefinition(const Group& group) {
  Json::Value root(Json::objectValue);
  root["group_id"] = group.id;
  root["targets"] = Json::Value(Json::arrayValue);
  for (const VrelDR::Target& each : group.targets) {
    Json::Value target = each.ToJson();
    const auto since = group.since.find(each.GetId());
    if (since != group.since.end()) target["since"] = Json::Int64(since->second);
    root["targets"].append(std::move(target));
  }
  if (group.quiesce.ToJson() != VrelDR::QuiesceMeans().ToJson()) {
    root["quiesce"] = group.quiesce.ToJson();
  }
  if (!group.changing.empty()) root["changing"] = group.changing;
  if (!group.keep.IsEmpty()) root["keep"] = ToText(group.keep);
  if (!group.last_restore.IsNone()) root["last_restore"] = group.last_restore.ToJson();
  if (!group.schedule.empty()) root["schedule"] = ToJson(group.schedule);
  for (const std::string& word : group.hook) root["hook"].append(word);
  const std::string path = DefinitionPath(group.directory);
  const int error = WriteFileAtomically(path, VrelDRCore::JsonUtil::ToString(root) + "\n");
  if (error != 0) {
    throw Failure(ExitCode::kStorage, "cannot write " + Quote(path) + ": " +
                                          std::generic_category().message(error) +
                                          "; see to it and run it again");
  }
}

std::vector<std::string> GroupsOfTargets(const std::set<std::string>& targetIds) {
  std::vector<std::string> groups;
  for (const std::string& id : ListGroupIds()) {
    try {
      const Group group = LoadGroup(id);
      if (std::any_of(group.targets.begin(), group.targets.end(),
                      [&](const auto& each) { return targetIds.count(each.GetId()) != 0; })) {
        groups.push_back(id);
      }
    } catch (const Failure&) {  // "group list" tells of it
    }
  }
  return groups;
}

GroupLock::GroupLock(const std::string& groupId) {
  const std::string dir = LinkDirectory(groupId);
  int error = 0;
  fd_ = LockDirectory(dir, error);
  if (error == ENOENT) {
    BringNameToDisk(groupId);
    throw NoSuchGroup(groupId);
  }
  if (error != 0 && error != EWOULDBLOCK) throw CannotLock(groupId, dir, error);
  // Whoever had the lock before may have removed the directory; then the lock is worth nothing.
  struct stat mine = {};
  struct stat named = {};
  if (fd_ != -1 && fstat(fd_, &mine) == 0 && stat(dir.c_str(), &named) == 0 &&
      mine.st_ino == named.st_ino && mine.st_dev == named.st_dev) {
    try {
      BringNameToDisk(groupId);
    } catch (const Failure&) {
      close(fd_);
      throw;
    }
    return;
  }
  if (fd_ != -1) close(fd_);
  throw Failure(ExitCode::kBusy, "group " + Quote(groupId) +
                                     ": another process works on it; run it again when that has "
                                     "finished");
}

GroupLock::~GroupLock() {
  close(fd_);
}

SendLock::SendLock(const std::string& groupId, const std::string& directory) {
  int error = 0;
  fd_ = LockDirectory(directory, error);
  if (error == 0 || error == ENOENT || error == ENOTDIR) return;
  if (error != EWOULDBLOCK) throw CannotLock(groupId, directory, error);
  throw Failure(ExitCode::kBusy, "group " + Quote(groupId) +
                                     ": another process works on it, a sync or something else that "
                                     "goes with none; wait for its end, or stop a sync with "
                                     "\"drgroupctl stop " +
                                     Printable(groupId) + "\"");
}

SendLock::~SendLock() {
  if (fd_ != -1) close(fd_);
}

}  // namespace drgroupctl
