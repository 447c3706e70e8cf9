#include <vreldrgroup/snapshot/gsnap_utils.h>

#include "benchmarks.h"
#include "measure.h"
#include "raw.h"

namespace bench {

void RegisterInsert(Workplace& place) {
  benchmark::RegisterBenchmark(
      "insert of one row, us",
      [&place](benchmark::State& state) {
        const Catalogue& catalogue = place.Writing();
        const std::string gsnapId = catalogue.SnapshotId(0);
        const VrelDRGroup::TargetSnapshot tsnap(
            VrelDR::Target("0001f3c4-5ac1-4d0f-9b1e-000000000001", VrelDR::kTargetLun),
            "00000001-77aa-4bcd-8123-000000000001");
        const std::string path = catalogue.dbDir + "/drgroup.db";
        MeasureTime(state,
                    {[&] {
                       return VrelDRGroup::Utils::SetTargetSnapshotRecord(tsnap, gsnapId,
                                                                          catalogue.dbDir);
                     },
                     [&] { return raw::InsertTargetSnapshot(path, tsnap, gsnapId); }},
                    1.10);
      })
      ->UseManualTime()
      ->Iterations(500);
}

}  // namespace bench
