#include <filesystem>
#include <system_error>

#include "action/group_action.h"
#include "groups/catalogue.h"
#include "groups/directory_argument.h"
#include "groups/group_link.h"
#include "groups/group_store.h"
#include "groups/identifier_rewrite.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace fs = std::filesystem;

namespace {

// Where the link leads now; empty when there is none.
std::string LedTo(const std::string& groupId) {
  const std::string link = LinkPath(groupId);
  std::error_code error;
  const fs::file_type type = fs::symlink_status(link, error).type();
  if (type == fs::file_type::not_found) return {};
  const fs::path target = fs::read_symlink(link, error);
  if (!error) return target.parent_path();
  throw Failure(ExitCode::kCatalogue, "group " + Quote(groupId) + ": " + Quote(link) +
                                          " should be a link to the group's database, and is not: "
                                          "move it away first");
}

// Throws unless the definition in `dir` is the group's.
void CheckDefinition(const std::string& groupId, const std::string& dir) {
  const std::string about = "group " + Quote(groupId) + ": directory " + Quote(dir);
  std::error_code error;
  if (fs::status(dir, error).type() == fs::file_type::not_found) {
    throw Failure(ExitCode::kNotFound, about + " does not exist: correct the path");
  }
  Group group;
  if (!ReadDefinition(dir, group)) {
    throw Failure(ExitCode::kRefused, about +
                                          " has no group.json, so it cannot be told to be the "
                                          "group's: name the one that the group was made with");
  }
  if (group.id != groupId) {
    throw Failure(ExitCode::kRefused, about + " belongs to group " + Quote(group.id) +
                                          ": name the one that the group was made with");
  }
}

// Throws unless the catalogue in `dir` can be used and has records of the group only.
void CheckCatalogue(const std::string& groupId, const std::string& dir) {
  const std::string about = "group " + Quote(groupId) + ": ";
  if (const auto problem = ExamineDatabase(DatabasePath(dir), Access::kRead, kPatience)) {
    throw Failure(problem->code, about + problem->text);
  }
  IdentifierRewrite seen(groupId, groupId);
  if (!ReadIdentifiers(dir, seen)) {
    throw Failure(ExitCode::kCatalogue, about + "the records of the catalogue " +
                                            Quote(DatabasePath(dir)) +
                                            " cannot be read: restore it from a backup");
  }
  if (!seen.Foreign().empty()) {
    throw Failure(ExitCode::kRefused, about + "the catalogue " + Quote(DatabasePath(dir)) +
                                          " has records of " + Quote(seen.Foreign()) +
                                          ", which are not the group's: name its own directory");
  }
}

Report RunGroupRelink(const Arguments& args, Warnings& /*warnings*/) {
  const std::string groupId = args.Text("GROUP");
  const std::string dir = DirectoryArgument("DIRECTORY", args.Text("DIRECTORY"));
  const ActionLock lock(groupId, dir);
  const std::string before = LedTo(groupId);
  CheckDefinition(groupId, dir);
  if (const auto from = RenamedFrom(groupId)) throw UnfinishedRenaming(*from, groupId);
  CheckCatalogue(groupId, dir);
  PointLink(groupId, dir);

  Report report;
  report.AddText("The link of group " + Quote(groupId) + " leads to " + Quote(dir) + ".");
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"directory", "Directory"}, dir);
  report.AddField({"old_directory", "It led to"}, before);
  return report;
}

}  // namespace

Verb GroupRelink() {
  return {"group relink",
          "let a group's link lead to its own directory again",
          {"For a group whose link another program has pointed elsewhere. Checks first that the "
           "definition in the directory is the group's and that its catalogue can be read and has "
           "records of this group only.",
           "A failure changes nothing, and an interruption leaves the old link or the new one."},
          "The group's link.",
          {GroupArgument("the group"),
           Argument("DIRECTORY", Value::kDirectory, "the directory that the group was made with")},
          {},
          RunGroupRelink};
}

}  // namespace drgroupctl
