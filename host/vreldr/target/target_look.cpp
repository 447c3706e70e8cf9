#include "target/target_look.h"

#include <map>

namespace VrelDR {

namespace {

// What one volume is asked, and for whom.
struct VolumeQuestion {
  std::vector<TargetSight> sights;
  std::vector<TargetLook*> looks;
};

Status Ask(Host& host, const std::string& volume, const StorageEngine*& engine,
           std::vector<TargetSight>& sights) {
  Status status = host.FindEngine(volume, engine);
  return status.IsOk() ? engine->LookAtTargets(sights, host.watcher) : status;
}

}  // namespace

void LookAtTargets(Host& host, std::vector<TargetLook>& looks) {
  std::map<std::string, VolumeQuestion> questions;
  for (TargetLook& look : looks) {
    if (look.row == nullptr || look.row->state != RecordState::kWhole) {
      look.status = NoSuchTarget(look.target_id);
      continue;
    }
    VolumeQuestion& question = questions[look.row->volume];
    TargetSight& sight = question.sights.emplace_back();
    sight.place = PlaceOf(*look.row);
    sight.snap_id = look.snap_id;
    question.looks.push_back(&look);
  }
  for (auto& [volume, question] : questions) {
    const StorageEngine* engine = nullptr;
    const Status asked = Ask(host, volume, engine, question.sights);
    for (std::size_t i = 0; i < question.looks.size(); ++i) {
      TargetLook& look = *question.looks[i];
      const TargetSight& sight = question.sights[i];
      look.status = asked.IsOk() ? sight.status : asked;
      if (!look.status.IsOk()) {
        look.status = InContext(Cannot("look at", *look.row), look.status);
      } else if (!sight.has_target) {
        look.status = BytesGone(*look.row);
      }
      look.has_snapshot = sight.has_snapshot;
      if (look.has_snapshot) {
        look.snapshot_path = engine->GetSnapshotPath(sight.place, sight.snap_id);
      }
    }
  }
}

}  // namespace VrelDR
