#pragma once

#include "engine/tables.h"

// The local engine's rows of the tables. A local volume has a "path", an absolute one.
namespace VrelDR::Local {

Status CheckSettings(const VrelHost::VolumeConfig& volume, const VrelHost::Config& config,
                     std::string& where);
std::unique_ptr<StorageEngine> MakeEngine(const VrelHost::VolumeConfig& volume,
                                          const VrelHost::Config& config);
std::unique_ptr<Link> MakeLink(const LinkEnd& from, const LinkEnd& to,
                               const VrelHost::Config& config);

inline constexpr EngineRow kEngineRow{"local", CheckSettings, MakeEngine};
inline constexpr LinkRow kLinkRow{"local", "local", MakeLink};

}  // namespace VrelDR::Local
