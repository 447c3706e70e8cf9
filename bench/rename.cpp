#include <vreldrgroup/snapshot/gsnap_op.h>

#include "benchmarks.h"
#include "measure.h"
#include "raw.h"

namespace bench {

namespace {

// Each side gives the group the identifier that it does not have right now; they are equally long.
void MeasureRename(benchmark::State& state, const Catalogue& catalogue) {
  std::string from = catalogue.groupId;
  std::string to = "R" + from.substr(1);
  MeasureTime(
      state,
      {[&] { return VrelDRGroup::Operation::GsnapUpdateDRGroupGsnapId(from, to, catalogue.dbDir); },
       [&] { return raw::Rename(catalogue.dbDir + "/drgroup.db", from, to); },
       [&] { from.swap(to); }},
      1.10);
}

}  // namespace

void RegisterRename(Workplace& place) {
  const std::pair<long, int> sizes[] = {{10'000, 21}, {100'000, 11}, {1'000'000, 7}};
  for (const auto& [rows, rounds] : sizes) {
    benchmark::RegisterBenchmark(("rename " + std::to_string(rows) + " rows, us").c_str(),
                                 [&place, rows = rows](benchmark::State& state) {
                                   MeasureRename(state, place.Renaming(rows));
                                 })
        ->UseManualTime()
        ->Iterations(rounds);
  }
}

}  // namespace bench
