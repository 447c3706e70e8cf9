#pragma once

#include <string>
#include <vector>

namespace drgroupctl {

// Runs the tool with the words behind its name; returns its exit code. Nothing is thrown.
int RunTool(const std::vector<std::string>& words);

}  // namespace drgroupctl
