#include "action/group_action.h"
#include "copy_warning.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report Switchover(const Arguments& args) {
  const std::string groupId = args.Text("GROUP");
  const ActionLock lock(groupId, args);
  const Group group = LoadGroup(groupId);
  const Prepared prepared = PrepareOnGroup("switchover", group);
  if (const auto report = CheckFirst(prepared, args)) return *report;
  WarnOfMounts(SourcesOf(group));
  return CourseReport(prepared, Run(prepared, args), "Switched over group " + Quote(groupId) + ".");
}

}  // namespace drgroupctl
