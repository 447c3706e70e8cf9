#include "tool_group.h"

#include "output/console.h"
#include "verbs/verbs.h"

namespace bench {

std::string TargetOf(const std::string& groupId, int number) {
  return groupId + "-target-" + std::to_string(number);
}

drgroupctl::Arguments ArgumentsOf(const std::string& groupId,
                                  const std::vector<std::string>& options) {
  drgroupctl::Arguments args;
  args.Set("GROUP", {groupId});
  for (const std::string& each : options) args.Set(each, {});
  return args;
}

void MakeProtectedGroup(const std::string& groupId, int size) {
  drgroupctl::Warnings warnings;
  drgroupctl::Arguments group;
  std::vector<std::string> targets;
  for (int i = 0; i < size; ++i) {
    drgroupctl::Arguments target;
    targets.push_back(TargetOf(groupId, i));
    target.Set("ID", {targets.back()});
    target.Set("--volume", {"a"});
    target.Set("--type", {"share"});
    drgroupctl::TargetCreate().run(target, warnings);
  }
  group.Set("ID", {groupId});
  group.Set("--target", targets);
  drgroupctl::GroupCreate().run(group, warnings);
  drgroupctl::Arguments protect = ArgumentsOf(groupId, {"--json"});  // no progress
  protect.Set("--volume", {"b"});
  drgroupctl::Protect().run(protect, warnings);
  drgroupctl::Sync().run(ArgumentsOf(groupId, {"--json"}), warnings);
}

}  // namespace bench
