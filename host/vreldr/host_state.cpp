#include "vreldr/host_state.h"

#include "boundary.h"
#include "config/config.h"

namespace VrelDR {

bool HostState::GetDirectory(std::string& dir) const {
  return RunAndRecord(*this, [&]() -> Status {
    VrelHost::Config config;
    std::string problem;
    if (!VrelHost::ReadConfig(config, problem)) return {kErrConfig, problem};
    dir = config.state_dir;
    return {};
  });
}

}  // namespace VrelDR
