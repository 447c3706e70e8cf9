#include <vreldrcore/uuid.h>
#include <vreldrnode/dr_node.h>

namespace VrelDRNode {

// A host that outlives its process would keep the identifier.
std::string DRNode::getLocalNodeId() {
  static const std::string id = VrelDRCore::GenerateUUID();
  return id;
}

}  // namespace VrelDRNode
