#pragma once

#include "base/status.h"
#include "config/config.h"
#include "vrelcore/export.h"

// The configuration as the libraries of one process have it open together: libvreldrnode keeps it
// for libvreldr too. Not part of the contract.
namespace VrelHost {

// The configuration, kept or read afresh. kErrConfig with what is wrong with it.
VREL_API VrelDR::Status OpenConfig(Config& config);

// From now on what is read is kept, until DropConfig has been called as often. Any thread may call
// them. A forked child keeps nothing.
VREL_API void KeepConfig();
VREL_API void DropConfig();
// Whether it is kept in this process.
VREL_API bool IsConfigKept();

}  // namespace VrelHost
