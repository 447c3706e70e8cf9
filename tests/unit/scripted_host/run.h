#pragma once

#include <vreldr/operation.h>

#include "current.h"
#include "text.h"

namespace scripted_host {

// Writes down that an operation runs, and answers it. `subject` is the operation as a script names
// it, such as "PlanSync(p1)".
inline bool Run(const VrelDR::DROperation& operation, const std::string& subject, bool checkOnly) {
  const std::string call = subject + ".Run(" + Text(checkOnly) + ")";
  Record(call);
  const Failure* const failure = Fails(call);
  if (failure == nullptr) {
    operation.SetErr(0);
    return true;
  }
  operation.SetErr(failure->code, failure->message);
  return false;
}

}  // namespace scripted_host
