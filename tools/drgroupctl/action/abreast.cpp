#include "action/abreast.h"

#include <charconv>

#include "action/plans.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr std::size_t kUsualJobs = 4;

std::size_t ParseJobs(const std::string& text) {
  std::size_t jobs = 0;
  const char* end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, jobs);
  if (error == std::errc() && at == end && jobs >= 1 && jobs <= kMostJobs) return jobs;
  throw Failure(ExitCode::kUsage, std::string(kJobs) + " " + Quote(text) +
                                      " is not a number from 1 to " + std::to_string(kMostJobs));
}

// Empty when the host has no such target: its sync will tell.
std::string VolumeOf(const std::string& target) {
  VrelDR::TargetEntry entry;
  return FindTarget(target, entry) ? entry.volume : std::string();
}

}  // namespace

Abreast SendAbreast(const std::vector<std::string>& targets, const Arguments& args) {
  Abreast abreast{args.Has(kJobs) ? ParseJobs(args.Text(kJobs)) : kUsualJobs};
  if (args.Has(kSameVolumes)) {
    if (args.Has(kJobs)) return abreast;
    throw Failure(ExitCode::kUsage, std::string(kSameVolumes) + " goes with " + kJobs +
                                        ", which says how many of them are sent at a time");
  }
  for (const std::string& target : targets) {
    const std::vector<VrelDR::DRPlan> plans = PlansOf(target);
    if (plans.size() != 1) continue;  // the sync itself refuses that
    abreast.lanes[target] = VolumeOf(plans.front().GetSourceTargetId()) + "\n" +
                            VolumeOf(plans.front().GetReplicaTargetId());
  }
  return abreast;
}

}  // namespace drgroupctl
