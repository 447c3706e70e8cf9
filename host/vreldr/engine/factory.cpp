#include <array>

#include "engine/engine.h"
#include "engine/local/local_engine.h"

namespace VrelDR {

namespace {

struct EngineFactory {
  const char* name;
  Status (*make)(const VrelHost::VolumeConfig& volume, std::unique_ptr<StorageEngine>& engine);
};

constexpr std::array kFactories{
    EngineFactory{"local", MakeLocalEngine},
};

}  // namespace

Status MakeEngine(const VrelHost::VolumeConfig& volume, std::unique_ptr<StorageEngine>& engine) {
  std::string known;
  for (const EngineFactory& factory : kFactories) {
    if (volume.engine == factory.name) return factory.make(volume, engine);
    known += (known.empty() ? "" : ", ") + Quoted(factory.name);
  }
  return {kErrConfig, "volume " + Quoted(volume.name) + " has an unknown engine " +
                          Quoted(volume.engine) + "; known are: " + known};
}

}  // namespace VrelDR
