#pragma once

#include <string>

#include "command/verb.h"

namespace drgroupctl {

// Returns when --yes was given or whoever sits at the terminal agrees; throws a refusal otherwise.
// `loss` says what would be lost, as the start of a question: "delete group snapshot \"x\"". The
// lines of `details` are shown on standard error before anything else; where nobody can be asked
// they are in the refusal's report and details.
void Confirm(const Arguments& args, const std::string& loss,
             const std::string& details = std::string());

}  // namespace drgroupctl
