#pragma once

#include <optional>
#include <string>
#include <vector>

#include "action/driver.h"
#include "action/precheck.h"
#include "command/verb.h"
#include "groups/group_store.h"
#include "host/in_use.h"

// What the verbs that run an action on a group have in common.
namespace drgroupctl {

// The lock of a group for an action; a failure to get it tells what runs on the group's plans. With
// --dry-run, which changes nothing, none is taken.
class ActionLock {
 public:
  ActionLock(const std::string& groupId, const Arguments& args);

 private:
  std::optional<GroupLock> lock_;
};

std::vector<std::string> TargetIds(const Group& group);

// The copies of the group's targets that work and that snapshots are taken of.
std::vector<VrelDR::Target> SourcesOf(const Group& group);

// The library's action on all targets of a group.
Prepared PrepareOnGroup(const std::string& task, const Group& group, Json::Value params = {});

// Throws unless every target passes every check. With --dry-run the report that ends the verb.
std::optional<Report> CheckFirst(const Prepared& prepared, const Arguments& args);
// The same, and nobody may be in the way, unless --in-use says to go on over that: then it is said.
std::optional<Report> CheckFirst(const Prepared& prepared, const Arguments& args,
                                 const InUse& inUse, Warnings& warnings);

// Runs the action; throws, with what became of every target, when one fails. With --in-use a
// switchover goes on over who is found in the way later, too. The last snapshots of a switchover
// are one cut.
Course Run(const Prepared& prepared, const Arguments& args, const Abreast& abreast = {});

// `sentence`, the group and what became of every target.
Report CourseReport(const Prepared& prepared, const Course& course, const std::string& sentence);

// All of it, for an action that needs nothing else.
Report RunOnGroup(const std::string& task, const Arguments& args, Warnings& warnings,
                  const std::string& done, const Json::Value& params = {});

}  // namespace drgroupctl
