#pragma once

#include <string>

#include "world.h"

namespace two_sides {

// Words for the lines of a trace.
std::string Named(Side side);
std::string Named(Op op);
std::string Named(VrelDR::Protocol::RequestKind kind);
std::string Named(VrelDR::Protocol::SideState state);
std::string Named(VrelDR::Protocol::Outcome outcome);

}  // namespace two_sides
