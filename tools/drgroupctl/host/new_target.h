#pragma once

#include <vreldr/target_manager.h>

#include "command/verb.h"

namespace drgroupctl {

// What every verb that makes a target takes from the command line.
VrelDR::TargetSpec NewTargetSpec(const Arguments& args);

// Makes the target that `spec` asks for.
Report MakeTarget(const VrelDR::TargetSpec& spec);

}  // namespace drgroupctl
