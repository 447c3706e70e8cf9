#include "engine/local/ship_source.h"

#include "engine/local/arrival.h"
#include "engine/local/directory.h"
#include "engine/local/kept_digests.h"

namespace VrelDR::Local {

Status ShipSource::Open(Watcher& watcher) {
  auto [volume, own, status] = dir_.Open(source_, watcher);
  if (!status.IsOk()) return status;
  own_ = std::move(own);
  return dir_.OpenSnapshot(source_, snap_id_, own_.Get(), snapshots_, snapshot_);
}

int ShipSource::HasSnapshot(const std::string& snapId, bool& has) const {
  return FindEntry(snapshots_.Get(), snapId, has);
}

int ShipSource::OpenDigests(const std::string& snapId, std::optional<DigestFile>& digests) const {
  return Local::OpenDigests(own_.Get(), source_, snapId, digests);
}

Fd ShipSource::OpenSnapshot(const std::string& snapId) const {
  return OpenDir(snapshots_.Get(), snapId);
}

}  // namespace VrelDR::Local
