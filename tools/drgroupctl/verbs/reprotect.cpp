#include "action/group_action.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// The side that took over asks.
Report RunReprotect(const Arguments& args, Warnings& warnings) {
  Json::Value params(Json::objectValue);
  params[Param::kIsMainSite] = false;
  return RunOnGroup("reprotect", args, warnings, "Reprotected", params);
}

}  // namespace

Verb Reprotect() {
  return {
      "reprotect",
      "replicate a group that failed over the other way",
      {"The copies that work become the sources and work throughout, the others their replicas; "
       "what those hold is kept in a snapshot first. The next sync sends what changed.",
       kInUse, kAllOrNothing, kRunAgain},
      "The direction of replication.",
      {GroupArgument("the group")},
      {GoOnInUse(), DryRun()},
      RunReprotect,
      "reprotect"};
}

}  // namespace drgroupctl
