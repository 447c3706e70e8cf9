#include <private_namespace.h>
#include <vrelcore/vlibc.h>

#include "benchmarks.h"
#include "measure.h"

namespace bench {

void RegisterScript(Workplace& place) {
  benchmark::RegisterBenchmark(
      "script, nothing to do; raw: /bin/true, us",
      [&place](benchmark::State& state) {
        const Catalogue& catalogue = place.Reading(1'000);
        MeasureTime(
            state,
            {[&] {
               return VLIBCExec(test_support::kDbScript, "repair_db", catalogue.linkDir.c_str(),
                                nullptr, nullptr) == 0;
             },
             [] { return VLIBCExec("/bin/true", nullptr, nullptr, nullptr, nullptr) == 0; }},
            4);
      })
      ->UseManualTime()
      ->Iterations(300);
}

}  // namespace bench
