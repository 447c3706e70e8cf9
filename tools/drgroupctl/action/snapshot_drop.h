#pragma once

#include <string>
#include <vector>

#include "command/verb.h"
#include "output/report.h"

namespace drgroupctl {

// Deletes snapshots of a target that nothing claims: those that are named or, without names, all
// that carry no description, as those of group snapshots. Throws, before anything is deleted, when
// one that is named may not be, or when a catalogue or a plan cannot be asked. Asks unless --yes is
// given; with --dry-run only tells.
Report DropSnapshots(const Arguments& args, const std::string& targetId,
                     const std::vector<std::string>& names);

}  // namespace drgroupctl
