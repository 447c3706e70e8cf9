#include <vreldrgroup/snapshot/gsnap_op.h>

#include "benchmarks.h"
#include "measure.h"
#include "raw.h"

namespace bench {

namespace {

using VrelDRGroup::GsnapshotInfo;

constexpr int kReads = 2000;

// Reads group snapshots from all over a catalogue, the same ones in the same order every time.
class Reader {
 public:
  explicit Reader(const Catalogue& catalogue) : catalogue_(catalogue) {}

  const std::string& NextId() {
    next_ = (next_ + 7919) % catalogue_.snapshots;
    id_ = catalogue_.SnapshotId(next_);
    return id_;
  }

  bool Ours() {
    const std::string& id = NextId();
    return IsWhole(VrelDRGroup::Operation::GsnapshotInfoGet(id, info_));
  }
  bool Raw() {
    const std::string& id = NextId();
    return IsWhole(raw::ReadInfo(catalogue_.linkPath, id, info_));
  }
  void Forget() { info_ = GsnapshotInfo(""); }

  const GsnapshotInfo& Info() const { return info_; }

 private:
  bool IsWhole(bool read) const {
    return read && info_.target_snapshots.size() == kTargetsPerSnapshot &&
           info_.target_replicas.size() == kTargetsPerSnapshot;
  }

  const Catalogue& catalogue_;
  long next_ = 0;
  std::string id_;
  GsnapshotInfo info_{""};
};

void Read(benchmark::State& state, const Catalogue& catalogue) {
  Reader ours(catalogue);
  Reader raw(catalogue);
  const bool read = ours.Ours() && raw.Raw();
  if (!read || ours.Info().ToJson() != raw.Info().ToJson()) {
    state.SkipWithError("the library and the raw side do not read the same");
    return;
  }
  ours.Forget();
  raw.Forget();
  MeasureTime(state,
              {[&] { return ours.Ours(); }, [&] { return raw.Raw(); },
               [&] {
                 ours.Forget();
                 raw.Forget();
               }},
              1.25);
}

}  // namespace

void RegisterRead(Workplace& place) {
  for (const long rows : {1'000L, 1'000'000L}) {
    benchmark::RegisterBenchmark(
        ("read by id of " + std::to_string(rows) + " rows, us").c_str(),
        [&place, rows](benchmark::State& state) { Read(state, place.Reading(rows)); })
        ->UseManualTime()
        ->Iterations(kReads);
  }
  benchmark::RegisterBenchmark("read by id of 1000000 rows; raw: ours of 1000, us",
                               [&place](benchmark::State& state) {
                                 Reader large(place.Reading(1'000'000));
                                 Reader small(place.Reading(1'000));
                                 MeasureTime(
                                     state,
                                     {[&] { return large.Ours(); }, [&] { return small.Ours(); },
                                      [&] {
                                        large.Forget();
                                        small.Forget();
                                      }},
                                     1.5);
                               })
      ->UseManualTime()
      ->Iterations(kReads);
}

}  // namespace bench
