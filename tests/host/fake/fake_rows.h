#pragma once

#include "engine/tables.h"

namespace VrelDR::Fake {

// The rows of the engine "fake" and of its link. It keeps plain files in a directory of this node,
// and is as strict as the contract of engines and links allows: whoever leans on what only a
// lenient engine does is refused. A volume of it has one setting, "path".
extern const EngineRow kEngineRow;
extern const LinkRow kLinkRow;

}  // namespace VrelDR::Fake
