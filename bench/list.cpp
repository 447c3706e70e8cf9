#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "benchmarks.h"
#include "measure.h"
#include "peak_memory.h"
#include "raw.h"

namespace bench {

namespace {

using Infos = std::vector<VrelDRGroup::GsnapshotInfo>;
using VrelDRGroup::DRGroupDB;
using VrelDRGroup::Operation::GsnapshotInfoList;
using VrelDRGroup::Operation::TargetSnapList;

bool IsSame(const Infos& left, const Infos& right) {
  return std::equal(
      left.begin(), left.end(), right.begin(), right.end(), [](const auto& one, const auto& other) {
        return one.target_snapshots.size() == kTargetsPerSnapshot && one.ToJson() == other.ToJson();
      });
}

void MeasureList(benchmark::State& state, const Catalogue& catalogue) {
  Infos infos;
  const auto ours = [&] { return GsnapshotInfoList(catalogue.groupId, infos); };
  const auto raw = [&] { return raw::ListInfo(catalogue.linkPath, catalogue.groupId, infos); };
  {
    bool listed = ours();
    const Infos first = std::move(infos);
    infos = Infos();
    listed = raw() && listed;
    if (!listed || first.empty() || !IsSame(first, infos)) {
      state.SkipWithError("the library and the raw side do not list the same");
      return;
    }
    infos = Infos();
  }
  MeasureTime(state, {ours, raw, [&] { infos = Infos(); }}, 1.25);
}

bool IsSame(const raw::TargetSnapshots& left, const raw::TargetSnapshots& right) {
  const auto isSameRow = [](const auto& one, const auto& other) {
    return one.target == other.target && one.tsnap_id == other.tsnap_id &&
           one.gsnap_id == other.gsnap_id;
  };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&isSameRow](const auto& one, const auto& other) {
                      return std::equal(one.second.begin(), one.second.end(), other.second.begin(),
                                        other.second.end(), isSameRow);
                    });
}

void MeasureParts(benchmark::State& state, const Catalogue& catalogue) {
  raw::TargetSnapshots tsnaps;
  const auto ours = [&] { return TargetSnapList(catalogue.groupId, tsnaps); };
  const auto raw = [&] { return raw::ListTargetSnapshots(catalogue.linkPath, tsnaps); };
  {
    bool listed = ours();
    const raw::TargetSnapshots first = std::move(tsnaps);
    tsnaps = raw::TargetSnapshots();
    listed = raw() && listed;
    if (!listed || first.empty() || !IsSame(first, tsnaps)) {
      state.SkipWithError("the library and the raw side do not list the same target snapshots");
      return;
    }
    tsnaps = raw::TargetSnapshots();
  }
  MeasureTime(state, {ours, raw, [&] { tsnaps = raw::TargetSnapshots(); }}, 1.25);
}

// `parts` is empty, or "-parts" for the target snapshots alone.
void MeasurePeak(benchmark::State& state, const Catalogue& catalogue, const std::string& parts,
                 double target) {
  std::vector<double> ours;
  std::vector<double> raw;
  for (auto iteration : state) {
    (void)iteration;
    ours.push_back(NumberFromSelf(kListOnce + ("ours" + parts + ":" + catalogue.groupId)));
    raw.push_back(NumberFromSelf(kListOnce + ("raw" + parts + ":" + catalogue.groupId)));
    if (ours.back() < 0 || raw.back() < 0) {
      state.SkipWithError("a listing in a process of its own failed");
      return;
    }
    state.SetIterationTime(1);
  }
  Report(state, Median(ours), Median(raw), Median(ours) / Median(raw), target);
}

}  // namespace

int ListOnce(const std::string& what) {
  const std::size_t colon = what.find(':');
  const std::string groupId = what.substr(colon + 1);
  const std::string path = DRGroupDB::GetRef(groupId).GetPath();
  const long before = CurrentMemory();
  const std::string which = what.substr(0, colon);
  Infos infos;
  raw::TargetSnapshots tsnaps;
  const bool listed = which == "ours"         ? GsnapshotInfoList(groupId, infos)
                      : which == "raw"        ? raw::ListInfo(path, groupId, infos)
                      : which == "ours-parts" ? TargetSnapList(groupId, tsnaps)
                                              : raw::ListTargetSnapshots(path, tsnaps);
  std::printf("%ld\n", PeakSince(before));
  return listed && (!infos.empty() || !tsnaps.empty()) ? 0 : 1;
}

void RegisterList(Workplace& place) {
  const std::pair<long, int> sizes[] = {{1'000, 500}, {10'000, 100}, {100'000, 25}, {1'000'000, 9}};
  for (const auto& [rows, rounds] : sizes) {
    benchmark::RegisterBenchmark(
        ("list " + std::to_string(rows) + " rows, us").c_str(),
        [&place, rows = rows](benchmark::State& state) { MeasureList(state, place.Reading(rows)); })
        ->UseManualTime()
        ->Iterations(rounds);
    benchmark::RegisterBenchmark(
        ("list " + std::to_string(rows) + " rows, peak memory, KiB").c_str(),
        [&place, rows = rows](benchmark::State& state) {
          MeasurePeak(state, place.Reading(rows), "", 1.10);
        })
        ->UseManualTime()
        ->Iterations(5);
  }
  constexpr long kMany = 1'000'000;
  benchmark::RegisterBenchmark(
      "target snapshots of 1000000 rows, us",
      [&place](benchmark::State& state) { MeasureParts(state, place.Reading(kMany)); })
      ->UseManualTime()
      ->Iterations(9);
  benchmark::RegisterBenchmark("target snapshots of 1000000 rows, peak memory, KiB",
                               [&place](benchmark::State& state) {
                                 MeasurePeak(state, place.Reading(kMany), "-parts", 1.25);
                               })
      ->UseManualTime()
      ->Iterations(5);
}

}  // namespace bench
