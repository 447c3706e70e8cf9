#include "vreldrnode/dr_node.h"

#include <exception>

#include "foundation/foundation.h"
#include "vreldrnode/open_config.h"

namespace VrelDRNode {

std::string DRNode::getLocalNodeId() {
  try {
    VrelHost::Config config;
    VrelHost::HostStanding standing;
    if (!VrelHost::OpenConfig(config).IsOk()) return {};
    if (!FindHost(config, VrelHost::Making::kWhenAbsent, standing).IsOk()) return {};
    return standing.node_id;
  } catch (const std::exception&) {  // out of memory
    return {};
  }
}

}  // namespace VrelDRNode
