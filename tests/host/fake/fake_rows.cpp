#include "fake_rows.h"

#include "fake_engine.h"
#include "fake_link.h"
#include "vreldrcore/json.h"

namespace VrelDR::Fake {

namespace {

std::string PathOf(const VrelHost::VolumeConfig& volume) {
  return VrelDRCore::JsonUtil::AsText(VrelDRCore::JsonUtil::Member(volume.settings, "path"));
}

Status CheckSettings(const VrelHost::VolumeConfig& volume, const VrelHost::Config& /*config*/,
                     std::string& where) {
  for (const std::string& member : volume.settings.getMemberNames()) {
    if (member != "name" && member != "engine" && member != "path") {
      return {kErrConfig,
              "volume " + Quoted(volume.name) + " has an unknown member " + Quoted(member)};
    }
  }
  where = PathOf(volume);
  if (!where.empty() && where.front() == '/') return {};
  return {kErrConfig, "volume " + Quoted(volume.name) + " has no absolute \"path\""};
}

std::unique_ptr<StorageEngine> MakeEngine(const VrelHost::VolumeConfig& volume,
                                          const VrelHost::Config& /*config*/) {
  return std::make_unique<FakeEngine>(PathOf(volume));
}

Store StoreOf(const LinkEnd& end) {
  Store store(PathOf(end.volume));
  if (end.identity) store.Expect(*end.identity);
  return store;
}

std::unique_ptr<Link> MakeFakeLink(const LinkEnd& from, const LinkEnd& to,
                                   const VrelHost::Config& /*config*/) {
  return std::make_unique<FakeLink>(StoreOf(from), StoreOf(to));
}

}  // namespace

constexpr EngineRow kEngineRow{"fake", CheckSettings, MakeEngine};
constexpr LinkRow kLinkRow{"fake", "fake", MakeFakeLink};

}  // namespace VrelDR::Fake
