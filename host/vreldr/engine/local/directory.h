#pragma once

#include <string>
#include <vector>

#include "../../fd.h"

namespace VrelDR::Local {

// Opens a directory for looking into it; never follows a link. False with errno set on a failure.
Fd OpenDir(int parentFd, const std::string& name);

// Opens `name` below `parentFd`, making it with mode 0700 when it is missing.
Fd OpenOrMakeDir(int parentFd, const std::string& name);

// Appends the names in a directory, without "." and "..". 0 or an errno.
int ListDir(int dirFd, std::vector<std::string>& names);

}  // namespace VrelDR::Local
