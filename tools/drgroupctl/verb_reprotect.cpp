#include "action/group_action.h"
#include "verb_functions.h"

namespace drgroupctl {

// The side that took over asks.
Report Reprotect(const Arguments& args) {
  Json::Value params(Json::objectValue);
  params["is_mainsite"] = false;
  return RunOnGroup("reprotect", args, "Reprotected", params);
}

}  // namespace drgroupctl
