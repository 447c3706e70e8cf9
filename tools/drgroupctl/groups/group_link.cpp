#include "groups/group_link.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "groups/file_write.h"
#include "groups/group_store.h"
#include "groups/kill_point.h"
#include "output/text.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

// The group that the definition in `dir` names; empty when there is none or it is no use.
std::string OwnerOf(const std::string& dir) {
  Group group;
  try {
    if (ReadDefinition(dir, group)) return group.id;
  } catch (const Failure&) {  // whoever needs the definition tells of it
  }
  return {};
}

// Empty when there is none.
std::string LinkTarget(const std::string& groupId) {
  std::error_code error;
  return fs::read_symlink(LinkPath(groupId), error);
}

bool HasLink(const std::string& groupId) {
  std::error_code error;
  return fs::symlink_status(LinkPath(groupId), error).type() != fs::file_type::not_found;
}

void Require(int error, const std::string& what, const std::string& path) {
  if (error == 0) return;
  throw Failure(ExitCode::kStorage, "cannot " + what + " " + Quote(path) + ": " +
                                        std::generic_category().message(error) +
                                        "; see to it and run it again");
}

}  // namespace

std::optional<std::string> RenamedFrom(const std::string& newId) {
  for (const std::string& id : ListGroupIds()) {
    const std::string target = LinkTarget(id);
    if (id != newId && !target.empty() && OwnerOf(fs::path(target).parent_path()) == newId &&
        !HasLink(newId)) {
      return id;
    }
  }
  return std::nullopt;
}

Failure UnfinishedRenaming(const std::string& from, const std::string& to) {
  return {ExitCode::kCatalogue, "group " + Quote(from) + " is being renamed to " + Quote(to) +
                                    ", and its link, which leads to " +
                                    Quote(fs::path(LinkTarget(from)).parent_path().string()) +
                                    ", has the old name still: finish that with \"drgroupctl group "
                                    "rename " +
                                    Printable(from) + " " + Printable(to) + "\""};
}

std::string FindOwnDirectory(const std::string& groupId) {
  fs::path root;
  try {
    root = fs::path(DefaultDirectory(groupId)).parent_path();
  } catch (const Failure&) {  // without a configuration there is no such directory
    return {};
  }
  std::error_code error;
  fs::directory_iterator entry(root, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    if (OwnerOf(entry->path()) == groupId) return entry->path();
  }
  return {};
}

std::vector<Failure> FindUnlinked() {
  std::vector<fs::path> linked;
  for (const std::string& id : ListGroupIds()) {
    linked.push_back(fs::path(LinkTarget(id)).parent_path().lexically_normal());
  }
  std::vector<Failure> unlinked;
  std::error_code error;
  fs::directory_iterator entry(fs::path(DefaultDirectory("group")).parent_path(), error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const std::string dir = entry->path().lexically_normal();
    std::error_code ignored;
    if (std::find(linked.begin(), linked.end(), dir) != linked.end() ||
        !fs::exists(DatabasePath(dir), ignored)) {
      continue;
    }
    const std::string owner = OwnerOf(dir);
    unlinked.emplace_back(
        ExitCode::kCatalogue,
        "no link leads to the catalogue in " + Quote(dir) + ", " +
            (owner.empty() ? "and it has no definition of a group"
                           : "which is that of group " + Quote(owner)) +
            ": create the group again with the same targets, which makes the lost link, or move "
            "the directory away if it is of no use any more");
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    unlinked.emplace_back(ExitCode::kStorage, "the directories of groups cannot be listed: " +
                                                  error.message() + "; see to that");
  }
  return unlinked;
}

std::optional<Failure> ExamineOwner(const std::string& groupId, const std::string& directory,
                                    const std::string& owner) {
  if (owner == groupId) return std::nullopt;
  const std::string own = FindOwnDirectory(groupId);
  std::error_code error;
  if (owner.empty() && (own.empty() || fs::equivalent(own, directory, error))) return std::nullopt;
  if (!owner.empty() && own.empty() && !HasLink(owner)) {
    return UnfinishedRenaming(groupId, owner);
  }
  return Failure(
      ExitCode::kCatalogue,
      "group " + Quote(groupId) + ": its link leads to " + Quote(directory) + ", which " +
          (owner.empty() ? "has no definition of a group" : "belongs to group " + Quote(owner)) +
          ", as after another program made the group there: let it lead to the group's "
          "own directory again with \"drgroupctl group relink " +
          Printable(groupId) + " " + (own.empty() ? "DIRECTORY" : Printable(own)) + "\"");
}

void PointLink(const std::string& groupId, const std::string& directory) {
  // Beside the link directories, where nobody takes it for anything. No group's name begins so.
  const std::string made = LinkRoot() + "/.relink-" + groupId;
  const std::string link = LinkPath(groupId);
  unlink(made.c_str());
  Require(symlink(DatabasePath(directory).c_str(), made.c_str()) == 0 ? 0 : errno, "make the link",
          made);
  KillPoint(kRelinkMade);
  if (rename(made.c_str(), link.c_str()) != 0) {
    const int error = errno;
    unlink(made.c_str());
    Require(error, "replace the link", link);
  }
  KillPoint(kRelinkReplaced);
  for (const std::string& dir : {LinkDirectory(groupId), LinkRoot()}) {
    Require(SyncDirectory(dir), "bring to disk the directory", dir);
  }
}

}  // namespace drgroupctl
