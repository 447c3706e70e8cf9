#pragma once

#include <memory>
#include <span>
#include <string>

#include "base/status.h"
#include "config/config.h"
#include "engine/engine.h"
#include "engine/link.h"

namespace VrelDR {

// An engine, by the name that volumes of the configuration have it under.
struct EngineRow {
  const char* name;
  // Whether the volume's settings are right, looking at nothing else: kErrConfig otherwise. Where
  // the volume is, for people, is in `where`; no two volumes may be at one place.
  Status (*check)(const VrelHost::VolumeConfig& volume, const VrelHost::Config& config,
                  std::string& where);
  // Makes the engine of a volume that was checked. Reaches nothing. What the configuration says of
  // credentials and other nodes is the engine's to use.
  std::unique_ptr<StorageEngine> (*make)(const VrelHost::VolumeConfig& volume,
                                         const VrelHost::Config& config);
};

// A pair of engines between which there is a link.
struct LinkRow {
  const char* from;
  const char* to;
  std::unique_ptr<Link> (*make)(const LinkEnd& from, const LinkEnd& to,
                                const VrelHost::Config& config);
};

// All that there are.
std::span<const EngineRow> EngineRows();
std::span<const LinkRow> LinkRows();

// The row of the volume's engine, whose `check` has found the settings right. kErrConfig when there
// is none of that name or they are wrong.
Status FindEngineRow(const VrelHost::VolumeConfig& volume, const VrelHost::Config& config,
                     const EngineRow*& row, std::string& where);

// Makes the link from one volume to another. kErrUnsupported, with both by name, when there is none
// between their engines.
Status MakeLink(const LinkEnd& from, const LinkEnd& to, const VrelHost::Config& config,
                std::unique_ptr<Link>& link);

}  // namespace VrelDR
