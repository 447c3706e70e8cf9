#include "vreldr/host_state.h"

#include "base/boundary.h"
#include "foundation/host_init.h"
#include "target/host.h"
#include "vreldrnode/open_config.h"

namespace VrelDR {

bool HostState::GetDirectory(std::string& dir) const {
  return RunAndRecord(*this, [&]() -> Status {
    VrelHost::Config config;
    Status status = VrelHost::OpenConfig(config);
    if (status.IsOk()) dir = config.state_dir;
    return status;
  });
}

bool HostState::Examine(HostExamination& examination) const {
  return RunAndRecord(*this, [&]() -> Status {
    VrelHost::Config config;
    std::vector<Volume> volumes;
    VrelHost::HostPrognosis prognosis;
    Status status = OpenVolumes(config, volumes);
    if (status.IsOk()) status = ExamineHost(config, prognosis);
    if (!status.IsOk()) return status;
    examination = {};
    examination.state_dir = config.state_dir;
    examination.is_made = prognosis.is_whole;
    examination.node_id = prognosis.node_id;
    for (const VrelHost::Trace& each : prognosis.traces) {
      examination.traces.push_back(each.what + " " + each.text);
    }
    examination.damaged = std::move(prognosis.damaged);
    return {};
  });
}

bool HostState::Make(std::string& nodeId, std::vector<std::string>& moved) const {
  return RunAndRecord(*this, [&]() -> Status {
    VrelHost::Config config;
    std::vector<Volume> volumes;
    Status status = OpenVolumes(config, volumes);
    if (status.IsOk()) status = InitHost(config, nodeId, moved);
    CloseTheHost();
    return status;
  });
}

}  // namespace VrelDR
