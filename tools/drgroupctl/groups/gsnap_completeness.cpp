#include "groups/gsnap_completeness.h"

#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>

#include "groups/group_store.h"
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

}  // namespace

std::optional<std::vector<VrelDR::Target>> DefinedTargets(Warnings& warnings,
                                                          const std::string& groupId) {
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
    if (ReadDefinition(dir, group)) return group.targets;
  } catch (const Failure& failure) {
    problem = failure.message;
  }
  warnings.Print("whether group snapshots are complete cannot be told: " + problem);
  return std::nullopt;
}

std::vector<std::string> MissingTargets(const std::vector<VrelDR::Target>& defined,
                                        const std::set<std::string>& parts) {
  std::vector<std::string> missing;
  for (const VrelDR::Target& each : defined) {
    if (parts.count(each.GetId()) == 0) missing.push_back(each.GetId());
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
  const auto defined = DefinedTargets(warnings, VrelDRGroup::Utils::ParseGroupId(info.gsnap_id));
  const std::string named = "group snapshot " + Quote(info.gsnap_id);
  if (!defined) {
    if (isForced) return {};
    throw Failure(ExitCode::kRefused, named + " was not " + done +
                                          ": whether it is complete cannot be told without the "
                                          "group's definition; add --force to do it all the same");
  }
  std::vector<std::string> missing = MissingTargets(*defined, PartsOf(info));
  if (missing.empty()) return missing;
  const std::string problem = named + " is incomplete: it has no snapshot of target " +
                              Names(missing) + ", as after a deletion that ended half way";
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

}  // namespace drgroupctl
