#include "boundary.h"
#include "host.h"
#include "vreldr/volume.h"

namespace VrelDR {

bool VolumeManager::List(std::vector<VolumeInfo>& volumes) const {
  return RunAndRecord(*this, [&]() -> Status {
    VrelHost::Config config;
    std::vector<Volume> configured;
    Status status = OpenVolumes(config, configured);
    for (const Volume& each : configured) {
      if (!status.IsOk()) break;
      VolumeDescription description;
      const Status described = each.engine->Describe(description);
      VolumeInfo info;
      info.name = each.name;
      info.engine = each.engine_name;
      info.where = each.engine->GetWhere();
      info.method = description.method;
      info.is_atomic = description.is_atomic;
      info.is_immutable = description.is_immutable;
      info.size_bytes = description.size_bytes;
      info.free_bytes = description.free_bytes;
      info.problem = described.message;
      volumes.push_back(std::move(info));
    }
    return status;
  });
}

}  // namespace VrelDR
