#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "vreldr/target_users.h"

namespace VrelDR {

// What was found out of who uses targets.
struct UsersSeen {
  std::map<std::string, std::vector<TargetUser>> users;  // by target
  std::set<std::string> unseen;                          // what could not be looked at, a line each
};

}  // namespace VrelDR
