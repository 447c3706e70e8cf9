#pragma once

#include <string>

namespace host_test {

// Where the hierarchy "v1" (the freezer's) or "v2" of control groups is; mounted in the directory
// `scratch` where nobody has mounted it. Empty, with `why`, when this system has none.
std::string FindHierarchy(const std::string& kind, const std::string& scratch, std::string& why);

}  // namespace host_test
