#pragma once

#include <vreldrgroup/record/gsnapshot.h>

#include <vector>

#include "action/common_cut.h"
#include "groups/group_store.h"
#include "groups/retention.h"
#include "output/report.h"

namespace drgroupctl {

// What a rule makes of the group snapshots in a group's catalogue.
struct Retention {
  std::vector<Verdict> verdicts;              // the newest first
  std::vector<VrelDRGroup::Gsnapshot> going;  // the oldest first
};

// Judges them without a look at the clock, with what FindNeededCuts tells of the targets' plans.
// Whatever the rule says, those stay that are locked, that undo the last restore, that a plan holds
// a part of or is going to send, whose cut a failover may need, a part of which is out of reach,
// and a part of which another group snapshot has that stays. Throws when one of the catalogues or
// what plans hold cannot be read: what that claims could not be spared.
Retention JudgeGsnaps(const Group& group, const KeepRule& rule, const NeededCuts& needed);

// Deletes what goes, the oldest first. Throws at the first failure, with how many have gone: the
// same command goes on.
void DeleteByRule(const Group& group, const Retention& retention);

// Adds a table that says of each group snapshot why it stays or goes.
void AddVerdicts(const Retention& retention, Report& report);

}  // namespace drgroupctl
