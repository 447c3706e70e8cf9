#pragma once

#include <string>

namespace drgroupctl {

// The absolute path of the group directory that was `given` on the command line as `name`. Throws
// when none can be there.
std::string DirectoryArgument(const std::string& name, const std::string& given);

}  // namespace drgroupctl
