#pragma once

#include <string>

// Names from the command line, checked before anything else sees them: they become names of files
// and parts of statements further down.
namespace drgroupctl {

// Throws a usage failure unless `id` may name a `kind` ("group", "target", "volume").
void CheckIdentifier(const std::string& kind, const std::string& id);

// Throws a usage failure unless `gsnapId` looks like GROUP-gsnap-SECONDS with an allowed group.
void CheckGsnapId(const std::string& gsnapId);

}  // namespace drgroupctl
