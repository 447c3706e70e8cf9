#pragma once

#include <string>

namespace drgroupctl {

// The completion of bash, as a file that bash sources.
std::string BashCompletion();

}  // namespace drgroupctl
