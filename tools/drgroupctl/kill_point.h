#pragma once

#include <string_view>

namespace drgroupctl {

// Steps of the tool's own between which a crash must lose nothing, named in VRELDR_KILL_POINT as
// the host's are: the process ends there as in a crash.
inline constexpr std::string_view kRenameReserved = "rename.reserved";    // new name taken
inline constexpr std::string_view kRenameDefined = "rename.defined";      // group.json says it
inline constexpr std::string_view kRenameRewritten = "rename.rewritten";  // the catalogue too
inline constexpr std::string_view kRenameLinked = "rename.linked";        // found by it

// Ends the process at once when VRELDR_KILL_POINT names `step`.
void KillPoint(std::string_view step);

}  // namespace drgroupctl
