#pragma once

#include <string>

namespace drgroupctl {

// The manual page, drgroupctl(1), in roff. `linkPath` is where the link of a group called GROUP is.
std::string ManualPage(const std::string& linkPath);

}  // namespace drgroupctl
