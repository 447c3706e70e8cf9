#pragma once

#include <string>

#include "vrelcore/export.h"

namespace VrelDRCore {

// A new random UUID in its 36-character lower-case form. Any thread may call.
VREL_API std::string GenerateUUID();

}  // namespace VrelDRCore
