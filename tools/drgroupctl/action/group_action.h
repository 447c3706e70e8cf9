#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "action/driver.h"
#include "action/precheck.h"
#include "command/verb.h"
#include "groups/group_store.h"
#include "host/in_use.h"

// What the verbs that run an action on a group have in common.
namespace drgroupctl {

// The locks of a group for what does not go on beside a sync: an action, and what would take the
// group or its targets from under one that sends. What a sync is not in the way of takes a
// GroupLock. A failure to get them tells what runs on the group's plans.
class ActionLock {
 public:
  // The group's own directory is the one that its link leads to, unless another one is given.
  explicit ActionLock(const std::string& groupId, const std::string& directory = {});
  // With --dry-run, which changes nothing, none is taken.
  ActionLock(const std::string& groupId, const Arguments& args);

  // Only bytes are sent from now on: others may work on the group beside that.
  void ReleaseGroup() { group_.reset(); }

 private:
  void Take(const std::string& groupId, const std::string& directory);

  std::optional<GroupLock> group_;
  std::optional<SendLock> sending_;
};

// Keeps everybody from sending a target, for whatever group, as long as it lives. Throws when
// somebody does.
class NobodySends {
 public:
  explicit NobodySends(const std::set<std::string>& targetIds);

 private:
  std::vector<std::unique_ptr<SendLock>> locks_;
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
