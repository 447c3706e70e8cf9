#pragma once

#include <vreldr/snapshot.h>

#include <map>
#include <string>
#include <vector>

#include "action/task.h"

namespace drgroupctl {

// The targets that an earlier run of the task has brought where it brings them before it was
// interrupted, each with the reason to pass it over now: running the task again must finish it, not
// turn them back. Empty for a group whose targets are all alike.
//
// Targets are taken in their order. After an interrupted switchover the first target therefore has
// the direction that all were to have, and after one that was being reverted the one that all had.
std::map<std::string, std::string> DoneBefore(const Task& task,
                                              const std::vector<std::string>& targets);

// The last snapshot that arrived of one of these targets, the oldest, when those of all are of one
// cut: where an interrupted switchover has done them it is of that one's. An empty one otherwise.
VrelDR::Operation::Snapshot LastOfOneCut(const std::map<std::string, std::string>& done);

}  // namespace drgroupctl
