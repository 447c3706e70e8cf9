#pragma once

#include <string>

namespace VrelDR {

// Where programs are looked for: PATH, and the directories of system tools, which may be missing
// there.
std::string SearchPath();

// The absolute path of the program of that name, or empty when it is not there.
std::string FindProgram(const std::string& name);

}  // namespace VrelDR
