#pragma once

#include <memory>
#include <optional>
#include <string>

#include "engine/local/digest_changes.h"
#include "engine/local/digest_check.h"
#include "engine/local/digest_file.h"
#include "engine/local/digest_writer.h"
#include "engine/local/ship_sink.h"
#include "engine/local/ship_source.h"

namespace VrelDR::Local {

// What digests do for one shipment by changes. Those that the source keeps find what changed, and
// tell whether what is read is what was taken and whether what has arrived is. The sink writes its
// own where its file system does not share blocks, for the shipments that go from there one day.
class ShipDigests {
 public:
  // All stay longer than this object. `baseId` may be empty.
  ShipDigests(const ShipSource& source, const ShipSink& sink, const std::string& snapId,
              const std::string& baseId)
      : source_(source), sink_(sink), snap_id_(snapId), base_id_(baseId) {}

  // Looks for those of the source.
  Status Open();
  // Null when one of the two snapshots is without.
  ChangeFinder* GetFinder() { return finder_ ? &*finder_ : nullptr; }
  // Hears what is read; null when the snapshot is without.
  DataListener* GetCheck() { return check_ ? &*check_ : nullptr; }
  // Hears, from the first file on, what arrives; null where files share blocks, as there are no
  // digests there.
  DataListener* BeginArrival(bool sharesBlocks);
  // Ends that for the sake of the room that it has taken up; false when it has taken up none.
  bool GiveUp();
  // All has arrived: writes its digests to their end, and fails when they are not those that the
  // source keeps. `isDifferent` says that what has arrived is not what was taken.
  Status Finish(bool& isDifferent);

 private:
  const ShipSource& source_;
  const ShipSink& sink_;
  const std::string& snap_id_;
  const std::string& base_id_;
  bool is_given_up_ = false;
  std::optional<DigestFile> base_, snapshot_;
  std::optional<DigestChanges> finder_;
  std::optional<DigestCheck> check_;
  std::optional<DigestWriter> writer_;
  std::optional<DigestKeeper> keeper_;
};

}  // namespace VrelDR::Local
