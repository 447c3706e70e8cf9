#include "host/copy_warning.h"

#include <algorithm>
#include <string>

#include "host/host.h"
#include "output/console.h"
#include "output/text.h"

namespace drgroupctl {

void WarnOfCopies(Warnings& warnings, const std::vector<VrelDR::Target>& asked) {
  const std::vector<VrelDR::VolumeInfo> volumes = ListVolumes();
  std::vector<std::string> targets;
  for (const VrelDR::Target& target : asked) {
    const std::string volume = RequireTarget(target.GetId()).volume;
    const auto found = std::find_if(volumes.begin(), volumes.end(),
                                    [&](const auto& each) { return each.name == volume; });
    if (found != volumes.end() && !found->is_atomic) {
      targets.push_back(Quote(target.GetId()) + " on volume " + Quote(volume));
    }
  }
  if (targets.empty()) return;
  constexpr std::size_t kMostNamed = 3;
  std::string rest;
  if (targets.size() > kMostNamed + 1) {
    rest = " and " + std::to_string(targets.size() - kMostNamed) + " more";
    targets.resize(kMostNamed);
  }
  warnings.Print("the snapshots of target " + Join(targets, ", ") + rest +
                 " are copies and not of one instant: they are only as consistent as the writers "
                 "are quiet");
}

void WarnOfMounts(Warnings& warnings, const std::vector<VrelDR::Target>& asked) {
  for (const VrelDR::Target& target : asked) {
    const VrelDR::TargetManager manager;
    std::vector<std::string> paths;
    if (!manager.FindMounts(target.GetId(), paths)) ThrowHostError(manager);
    if (paths.empty()) continue;
    std::string places;
    for (const std::string& path : paths) {
      places += (places.empty() ? "" : ", ") + Quote(Printable(path));
    }
    warnings.Print("what is mounted inside target " + Quote(target.GetId()) +
                   " is not a part of it and is in none of its snapshots: " + places);
  }
}

}  // namespace drgroupctl
