#include "action/group_action.h"
#include "verb_functions.h"

namespace drgroupctl {

Report Switchover(const Arguments& args) {
  return RunOnGroup("switchover", args, "Switched over");
}

}  // namespace drgroupctl
