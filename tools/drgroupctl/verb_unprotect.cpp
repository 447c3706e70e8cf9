#include "action/group_action.h"
#include "action/plans.h"
#include "console.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report Unprotect(const Arguments& args) {
  const std::string groupId = args.Text("GROUP");
  const bool withData = args.Has("--delete-data");
  const ActionLock lock(groupId, args);
  Json::Value params(Json::objectValue);
  params["is_data_deleted"] = withData;
  params["is_drsite_deleted"] = withData;
  const Prepared prepared = PrepareOnGroup("delete", LoadGroup(groupId), params);
  std::size_t plans = 0;
  for (const std::string& target : prepared.targets) plans += PlansOf(target).size();
  if (plans == 0) {
    throw Failure(ExitCode::kNotFound,
                  "group " + Quote(groupId) + " is not protected: no target of it has a plan");
  }
  if (const auto report = CheckFirst(prepared, args)) return *report;
  if (withData) {
    Confirm(args, "remove the DR copies of group " + Quote(groupId) + " with their snapshots");
  }
  const Course course = Run(prepared, args);
  return CourseReport(prepared, course,
                      "Group " + Quote(groupId) + " is not protected any more. " +
                          (withData ? "Its DR copies are gone." : "Its DR copies stay."));
}

}  // namespace drgroupctl
