#include "vreldrnode/dr_node.h"

#include <exception>

#include "config/config.h"
#include "foundation/foundation.h"

namespace VrelDRNode {

std::string DRNode::getLocalNodeId() {
  try {
    VrelHost::Config config;
    VrelHost::HostStanding standing;
    std::string problem;
    if (!VrelHost::ReadConfig(config, problem)) return {};
    if (!FindHost(config, VrelHost::Making::kWhenAbsent, standing).IsOk()) return {};
    return standing.node_id;
  } catch (const std::exception&) {  // out of memory
    return {};
  }
}

}  // namespace VrelDRNode
