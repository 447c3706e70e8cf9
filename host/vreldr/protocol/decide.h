#pragma once

#include "protocol/request.h"

namespace VrelDR::Protocol {

// What the side of the record does about a request. Every request may come late, twice or never,
// and again after a crash at any of the steps; a step that cannot be done ends a request as a crash
// does.
Decision Decide(const SideRecord& mine, const Request& request);

}  // namespace VrelDR::Protocol
