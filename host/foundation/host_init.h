#pragma once

#include <string>
#include <vector>

#include "config/config.h"
#include "foundation/traces.h"

namespace VrelHost {

// What a making of the host would find.
struct HostPrognosis {
  bool is_whole = false;      // there is a host, in order
  std::string node_id;        // the identity that the host has or would keep; empty for a new one
  std::vector<Trace> traces;  // of a host
  std::vector<std::string> damaged;  // files that would be moved aside
};

// Looks at what there is of a host. A failure when that cannot be told, and when the records are
// those of a later version.
Status ExamineHost(const Config& config, HostPrognosis& prognosis);

// Makes the host whatever traces there are. Nothing is removed: what is damaged is moved aside, to
// the names in `moved`. kErrExists when there is a host.
Status InitHost(const Config& config, std::string& nodeId, std::vector<std::string>& moved);

}  // namespace VrelHost
