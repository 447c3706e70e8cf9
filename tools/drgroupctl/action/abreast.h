#pragma once

#include "action/driver.h"
#include "command/verb.h"

namespace drgroupctl {

// The options of a sync that say how many of its targets are sent at the same time.
inline constexpr char kJobs[] = "--jobs";
inline constexpr char kSameVolumes[] = "--same-volumes";
inline constexpr std::size_t kMostJobs = 64;

// Which targets' snapshots are sent at the same time, as the options say: two that come from the
// same volume and go to the same one do not help each other, and are sent one after the other
// unless that is asked for. Throws a usage failure.
Abreast SendAbreast(const std::vector<std::string>& targets, const Arguments& args);

}  // namespace drgroupctl
