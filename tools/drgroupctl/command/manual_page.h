#pragma once

#include <string>

namespace drgroupctl {

// The manual page, drgroupctl(1), in roff.
std::string ManualPage();

}  // namespace drgroupctl
