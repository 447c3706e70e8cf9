#pragma once

#include <string>
#include <vector>

#include "command/verb.h"

namespace bench {

// Makes empty shares on the volume "a" and a group of them, protects it onto the volume "b" and
// syncs it once. Throws the tool's failures.
void MakeProtectedGroup(const std::string& groupId, int size);

// How its targets are called, counted from 0; their copies have "-dr" behind that.
std::string TargetOf(const std::string& groupId, int number);

// What the tool's verbs are given to work on the group; further words, each an option, besides.
drgroupctl::Arguments ArgumentsOf(const std::string& groupId,
                                  const std::vector<std::string>& options = {});

}  // namespace bench
