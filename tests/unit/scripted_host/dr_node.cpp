#include <vreldrnode/dr_node.h>

#include "current.h"

namespace VrelDRNode {

std::string DRNode::getLocalNodeId() {
  scripted_host::Record("getLocalNodeId()");
  return scripted_host::Current().node_id;
}

}  // namespace VrelDRNode
