#pragma once

#include <string>

#include "scripted_host.h"

namespace scripted_host {

// The script that answers.
VREL_API Script& Current();

// Writes a call down in it and tells the test.
VREL_API void Record(const std::string& call);

// How the call fails according to the script; null when it does not.
VREL_API const Failure* Fails(const std::string& call);

}  // namespace scripted_host
