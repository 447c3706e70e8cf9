#include <scripted_host.h>
#include <vreldrgroup/snapshot/gsnap_repair.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "benchmarks.h"
#include "measure.h"
#include "raw.h"

namespace bench {

namespace {

// A repair that finds everything in order, of a group whose targets really have, as the scripted
// host tells, the snapshots that the catalogue records.
void MeasureRepair(benchmark::State& state, const Catalogue& catalogue) {
  scripted_host::Script host;
  raw::RepairInput recorded;
  if (!raw::ReadForRepair(catalogue.linkPath, recorded)) {
    state.SkipWithError("the catalogue cannot be read");
    return;
  }
  for (const auto& [gsnapId, tsnaps] : recorded.parts) {
    for (const VrelDRGroup::TargetSnapshot& tsnap : tsnaps) {
      VrelDR::Operation::Snapshot snapshot;
      snapshot.create_time = 1;
      snapshot.snap_id = tsnap.tsnap_id;
      host.targets[tsnap.target.GetId()].snapshots.push_back(snapshot);
    }
  }
  recorded = {};
  scripted_host::Install(&host);
  const auto ours = [&] {
    return VrelDRGroup::Operation::GsnapshotRepair(catalogue.groupId).Run("");
  };
  // The limit: reading what is recorded and what there is into maps and sets, without a look at
  // them.
  const auto raw = [&] {
    raw::RepairInput input;
    if (!raw::ReadForRepair(catalogue.linkPath, input)) return false;
    std::map<std::string, std::set<std::string>> existing;
    for (const auto& [targetId, script] : host.targets) {
      for (const auto& snapshot : script.snapshots) existing[targetId].insert(snapshot.snap_id);
    }
    return !input.statuses.empty() && !existing.empty();
  };
  MeasureTime(state, {ours, raw, [&] { host.calls.clear(); }}, 1.5);
  scripted_host::Install(nullptr);
}

}  // namespace

void RegisterRepair(Workplace& place) {
  const std::pair<long, int> sizes[] = {{1'000, 40}, {10'000, 11}, {100'000, 5}};
  for (const auto& [snapshots, rounds] : sizes) {
    benchmark::RegisterBenchmark(
        ("repair " + std::to_string(snapshots) + " group snapshots, us").c_str(),
        [&place, snapshots = snapshots](benchmark::State& state) {
          MeasureRepair(state, place.Reading(snapshots * kTargetsPerSnapshot));
        })
        ->UseManualTime()
        ->Iterations(rounds);
  }
}

}  // namespace bench
