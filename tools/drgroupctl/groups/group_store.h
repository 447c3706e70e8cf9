#pragma once

#include <vreldr/quiesce.h>
#include <vreldr/target.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "groups/last_restore.h"
#include "groups/retention.h"
#include "groups/schedule.h"
#include "output/failure.h"

// Groups as the tool keeps them: the group's link directory leads to its database directory, and
// "group.json" beside the database names its targets. There is no other registry.
namespace drgroupctl {

struct Group {
  std::string id;
  std::string directory;  // of its database and group.json
  std::vector<VrelDR::Target> targets;
  VrelDR::QuiesceMeans quiesce = {};  // how its writers are held
  KeepRule keep = {};                 // which group snapshots stay when it is pruned; empty for all
  Schedule schedule = {};             // what is done with it by the calendar
  std::vector<std::string> hook = {};  // the program and arguments that are told of failures
  LastRestore last_restore = {};
  // Of targets that were added later, by identifier: the time of the first group snapshot that has
  // to have a part of it.
  std::map<std::string, std::int64_t> since = {};
  // The change of the targets that has begun and is not at its end, such as "add www"; else empty.
  std::string changing = {};

  bool Has(const std::string& targetId) const;
  // Whether a group snapshot of that time is incomplete without the target, which is of the group.
  bool NeedsPart(const std::string& targetId, std::int64_t gsnapTime) const;
};

// The directory that has one link directory for each group.
std::string LinkRoot();
// The group's link directory, and the link to its database in there.
std::string LinkDirectory(const std::string& groupId);
std::string LinkPath(const std::string& groupId);

// The database and the definition of a group whose directory is `dir`.
std::string DatabasePath(const std::string& dir);
std::string DefinitionPath(const std::string& dir);

// What the definition is called once the group's deletion has begun; it goes last.
std::string DeletionPath(const std::string& dir);
// Whether a deletion that was interrupted has left neither the database nor the definition in
// `dir`.
bool IsDeletedUpToItsLink(const std::string& dir);
// What to tell of a group whose definition in `dir` is gone because its deletion was interrupted.
std::optional<Failure> InterruptedDeletion(const std::string& groupId, const std::string& dir);

// Where a group's database is unless somebody wants it elsewhere.
std::string DefaultDirectory(const std::string& groupId);

// The names in the link root, sorted; empty when there is none yet.
std::vector<std::string> ListGroupIds();

// The same with those first that are `likely`, of which those that there are not are passed over.
std::vector<std::string> LikelyFirst(const std::vector<std::string>& likely);

// Where the group's link leads. Throws when there is no such group or its link is no use.
std::string GroupDirectory(const std::string& groupId);

// Throws when the group's link leads to what belongs to another group, or to nobody known while the
// group's own directory is elsewhere: the records there are not the group's, or not by this name.
void CheckOwner(const std::string& groupId);

// The group with its targets. Throws as GroupDirectory does, and when group.json is no use.
Group LoadGroup(const std::string& groupId);

// Reads the definition in `dir`. False when there is none; throws when it is no use.
bool ReadDefinition(const std::string& dir, Group& group);

// Writes the group's definition into its directory: there is the old or the new one, whole,
// whatever happens. Throws when it cannot be written.
void WriteDefinition(const Group& group);

// The groups that one of the targets is in, those that cannot be read passed over.
std::vector<std::string> GroupsOfTargets(const std::set<std::string>& targetIds);

// One process at a time changes a group: holds the lock on the group's link directory, which has to
// exist. Throws when another process has it, or when the group is gone. Either way the group's
// name, or that it is gone, is on disk then, whoever was interrupted before.
//
// What a sync that sends is in the way of takes an ActionLock.
class GroupLock {
 public:
  explicit GroupLock(const std::string& groupId);
  GroupLock(const GroupLock&) = delete;
  GroupLock& operator=(const GroupLock&) = delete;
  ~GroupLock();

 private:
  int fd_ = -1;
};

// One process at a time sends what a group's targets hold, or does to the group what nobody may
// while somebody sends: holds the lock on the group's own directory, which has its definition.
// Throws when another process has it. Where there is no such directory there is nothing to be
// locked: nobody can send for a group without a definition.
class SendLock {
 public:
  SendLock(const std::string& groupId, const std::string& directory);
  SendLock(const SendLock&) = delete;
  SendLock& operator=(const SendLock&) = delete;
  ~SendLock();

 private:
  int fd_ = -1;
};

}  // namespace drgroupctl
