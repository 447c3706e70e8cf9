#include "engine/local/local_rows.h"

#include <filesystem>

#include "engine/local/local_engine.h"
#include "engine/local/local_link.h"
#include "vreldrcore/json.h"

namespace VrelDR::Local {

namespace {

std::string WrittenPath(const VrelHost::VolumeConfig& volume) {
  return VrelDRCore::JsonUtil::AsText(VrelDRCore::JsonUtil::Member(volume.settings, "path"));
}

// Two ways to write one path must not make two volumes.
std::string PathOf(const VrelHost::VolumeConfig& volume) {
  std::string plain = std::filesystem::path(WrittenPath(volume)).lexically_normal().string();
  while (plain.size() > 1 && plain.back() == '/') plain.pop_back();
  return plain;
}

VolumeDir DirOf(const LinkEnd& end) {
  VolumeDir dir(PathOf(end.volume));
  if (end.identity) dir.Expect(*end.identity);
  return dir;
}

}  // namespace

Status CheckSettings(const VrelHost::VolumeConfig& volume, const VrelHost::Config& /*config*/,
                     std::string& where) {
  const std::string about = "volume " + Quoted(volume.name);
  for (const std::string& member : volume.settings.getMemberNames()) {
    if (member != "name" && member != "engine" && member != "path") {
      return {kErrConfig, about + " has an unknown member " + Quoted(member) +
                              "; a local volume has \"name\", \"engine\" and \"path\""};
    }
  }
  const std::string path = WrittenPath(volume);
  if (path.empty() || path.front() != '/') {
    return {kErrConfig, about + " needs an absolute \"path\"; correct it"};
  }
  where = PathOf(volume);
  return {};
}

std::unique_ptr<StorageEngine> MakeEngine(const VrelHost::VolumeConfig& volume,
                                          const VrelHost::Config& /*config*/) {
  return std::make_unique<LocalEngine>(PathOf(volume));
}

std::unique_ptr<Link> MakeLink(const LinkEnd& from, const LinkEnd& to,
                               const VrelHost::Config& /*config*/) {
  return std::make_unique<LocalLink>(DirOf(from), DirOf(to));
}

}  // namespace VrelDR::Local
