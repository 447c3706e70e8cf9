#pragma once

#include <string>

#include "vrelcore/export.h"

namespace VrelDRNode {

// This node, as other nodes know it. Any thread may call.
class VREL_API DRNode {
 public:
  // The identifier of this node: made once, with the host's records, kept in the host's state
  // directory, the same for every caller ever after. Empty when it can neither be read nor made, as
  // beside traces of a host that has lost it.
  static std::string getLocalNodeId();
};

}  // namespace VrelDRNode
