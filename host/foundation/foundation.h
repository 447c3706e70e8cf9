#pragma once

#include <string>

#include "base/status.h"
#include "config/config.h"

// A host is its state directory with the node's identity ("node_id") and the records
// ("replica.db") in it, all made together, once. One of them beside traces of another is not a new
// host but a damaged one, or one that looks in the wrong place: nothing is made then.
namespace VrelHost {

using VrelDR::Status;

enum class Making {
  kNever,
  kWhenAbsent,  // make a host where there is no trace of one
};

struct HostStanding {
  bool is_there = false;
  std::string node_id;  // when it is there
};

// Finds the host of the configuration. A making that was interrupted is gone on with. Good without
// a host when there is no trace of one and none may be made; kErrStore, with what is wrong and what
// to do, when there are traces and no host, or when that cannot be told.
Status FindHost(const Config& config, Making making, HostStanding& standing);

}  // namespace VrelHost
