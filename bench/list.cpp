#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_op.h>

#include <algorithm>
#include <cstdio>
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

void MeasurePeak(benchmark::State& state, const Catalogue& catalogue) {
  std::vector<double> ours;
  std::vector<double> raw;
  for (auto iteration : state) {
    (void)iteration;
    ours.push_back(NumberFromSelf(kListOnce + ("ours:" + catalogue.groupId)));
    raw.push_back(NumberFromSelf(kListOnce + ("raw:" + catalogue.groupId)));
    if (ours.back() < 0 || raw.back() < 0) {
      state.SkipWithError("a listing in a process of its own failed");
      return;
    }
    state.SetIterationTime(1);
  }
  Report(state, Median(ours), Median(raw), Median(ours) / Median(raw), 1.10);
}

}  // namespace

int ListOnce(const std::string& what) {
  const std::size_t colon = what.find(':');
  const std::string groupId = what.substr(colon + 1);
  const std::string path = DRGroupDB::GetRef(groupId).GetPath();
  const long before = CurrentMemory();
  Infos infos;
  const bool listed = what.compare(0, colon, "ours") == 0 ? GsnapshotInfoList(groupId, infos)
                                                          : raw::ListInfo(path, groupId, infos);
  std::printf("%ld\n", PeakSince(before));
  return listed && !infos.empty() ? 0 : 1;
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
        [&place, rows = rows](benchmark::State& state) { MeasurePeak(state, place.Reading(rows)); })
        ->UseManualTime()
        ->Iterations(5);
  }
}

}  // namespace bench
