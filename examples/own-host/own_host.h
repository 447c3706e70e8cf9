#pragma once

#include <vreldr/target.h>

#include <string>

#include "vrelcore/export.h"

// What a service asks of its own host, beside the contract: here the bytes of targets, which are
// one text each. Any thread may call.
namespace OwnHost {

// False when there is a target of that identifier already.
VREL_API bool MakeTarget(const VrelDR::Target& target, const std::string& bytes);

// False when there is no such target.
VREL_API bool Write(const std::string& targetId, const std::string& bytes);
VREL_API bool Read(const std::string& targetId, std::string& bytes);

}  // namespace OwnHost
