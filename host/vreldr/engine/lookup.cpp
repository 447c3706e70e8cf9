#include "engine/tables.h"

namespace VrelDR {

Status FindEngineRow(const VrelHost::VolumeConfig& volume, const VrelHost::Config& config,
                     const EngineRow*& row, std::string& where) {
  std::string known;
  for (const EngineRow& each : EngineRows()) {
    if (volume.engine == each.name) {
      row = &each;
      return each.check(volume, config, where);
    }
    known += (known.empty() ? "" : ", ") + Quoted(each.name);
  }
  return {kErrConfig, "volume " + Quoted(volume.name) + " has an unknown engine " +
                          Quoted(volume.engine) + "; known are: " + known};
}

Status MakeLink(const LinkEnd& from, const LinkEnd& to, const VrelHost::Config& config,
                std::unique_ptr<Link>& link) {
  for (const LinkRow& each : LinkRows()) {
    if (from.volume.engine != each.from || to.volume.engine != each.to) continue;
    link = each.make(from, to, config);
    return {};
  }
  const auto about = [](const LinkEnd& end) {
    return "volume " + Quoted(end.volume.name) + " (engine " + Quoted(end.volume.engine) + ")";
  };
  return {kErrUnsupported, "nothing can be replicated from " + about(from) + " to " + about(to) +
                               "; choose another volume"};
}

}  // namespace VrelDR
