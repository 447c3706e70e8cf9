#include "groups/gsnap_completeness.h"

#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr char kIncomplete[] = "incomplete";

std::string Names(const std::vector<std::string>& targets) {
  std::vector<std::string> names;
  names.reserve(targets.size());
  for (const std::string& each : targets) names.push_back(Quote(each));
  return Join(names, ", ");
}

std::vector<std::string> Require(Warnings& warnings, const VrelDRGroup::GsnapshotInfo& info,
                                 std::int64_t time, const std::string& done, bool isForced) {
  const auto defined = DefinedGroup(warnings, VrelDRGroup::Utils::ParseGroupId(info.gsnap_id));
  const std::string named = "group snapshot " + Quote(info.gsnap_id);
  if (!defined) {
    if (isForced) return {};
    throw Failure(ExitCode::kRefused, named + " was not " + done +
                                          ": whether it is complete cannot be told without the "
                                          "group's definition; add --force to do it all the same");
  }
  std::vector<std::string> missing = MissingTargets(*defined, time, PartsOf(info));
  if (missing.empty()) return missing;
  const std::string problem =
      named + " is incomplete: it has no snapshot of target " + Names(missing) +
      ", as after a deletion that ended half way, or of a target that was added later";
  if (!isForced) {
    Failure failure(ExitCode::kRefused, problem + "; it was not " + done +
                                            ": add --force to do it all the same, without those");
    failure.details["missing_targets"] = Json::Value(Json::arrayValue);
    for (const std::string& each : missing) failure.details["missing_targets"].append(each);
    throw failure;
  }
  warnings.Print(problem);
  return missing;
}

}  // namespace

std::optional<Group> DefinedGroup(Warnings& warnings, const std::string& groupId) {
  const std::string dir = GroupDirectory(groupId);
  Group group;
  const auto begun = InterruptedDeletion(groupId, dir);
  std::string problem =
      begun ? begun->message
            : "group " + Quote(groupId) + ": its link leads to " + Quote(dir) +
                  ", which has no definition (group.json), as after another program pointed "
                  "it there: \"drgroupctl group relink\" lets it lead to the group's own "
                  "directory again";
  try {
    if (ReadDefinition(dir, group)) return group;
  } catch (const Failure& failure) {
    problem = failure.message;
  }
  warnings.Print("whether group snapshots are complete cannot be told: " + problem);
  return std::nullopt;
}

std::int64_t TimeOf(const std::string& gsnapId) {
  return std::strtoll(gsnapId.c_str() + gsnapId.rfind('-') + 1, nullptr, 10);
}

std::vector<std::string> MissingTargets(const Group& defined, std::int64_t gsnapTime,
                                        const std::set<std::string>& parts) {
  std::vector<std::string> missing;
  for (const VrelDR::Target& each : defined.targets) {
    const std::string& id = each.GetId();
    if (parts.count(id) == 0 && defined.NeedsPart(id, gsnapTime)) missing.push_back(id);
  }
  return missing;
}

std::set<std::string> PartsOf(const VrelDRGroup::GsnapshotInfo& info) {
  std::set<std::string> parts;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    parts.insert(each.target.GetId());
  }
  return parts;
}

std::string ShownStatus(const VrelDRGroup::Gsnapshot& gsnap, bool isIncomplete) {
  const bool isShown = isIncomplete && gsnap.status != VrelDRGroup::kGsnapBad;
  return isShown ? kIncomplete : VrelDRGroup::ToString(gsnap.status);
}

std::vector<std::string> RequireComplete(Warnings& warnings, const VrelDRGroup::GsnapshotInfo& info,
                                         const std::string& done, bool isForced) {
  return Require(warnings, info, info.gsnap_time, done, isForced);
}

std::vector<std::string> RequireAll(Warnings& warnings, const VrelDRGroup::GsnapshotInfo& info,
                                    const std::string& done, bool isForced) {
  return Require(warnings, info, std::numeric_limits<std::int64_t>::max(), done, isForced);
}

void LeaveOutFormerTargets(Warnings& warnings, VrelDRGroup::GsnapshotInfo& info) {
  const std::string groupId = VrelDRGroup::Utils::ParseGroupId(info.gsnap_id);
  Group defined;
  try {
    if (!ReadDefinition(GroupDirectory(groupId), defined)) return;
  } catch (const Failure&) {  // that it cannot be read is told where completeness is asked for
    return;
  }
  std::vector<std::string> former;
  std::vector<std::string> later;
  for (const VrelDRGroup::TargetSnapshot& each : info.target_snapshots) {
    if (!defined.Has(each.target.GetId())) former.push_back(each.target.GetId());
  }
  for (const auto& [target, time] : defined.since) {
    if (time > info.gsnap_time) later.push_back(target);
  }
  std::erase_if(info.target_snapshots, [&](const VrelDRGroup::TargetSnapshot& each) {
    return !defined.Has(each.target.GetId());
  });
  const std::string named = "group snapshot " + Quote(info.gsnap_id);
  if (!former.empty()) {
    warnings.Print("target " + Names(former) + " of " + named +
                   " is not in the group any more, and stays as it is");
  }
  if (!later.empty()) {
    warnings.Print("target " + Names(later) + " came into the group after " + named +
                   ", and stays as it is");
  }
}

}  // namespace drgroupctl
