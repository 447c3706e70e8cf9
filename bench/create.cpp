#include <private_namespace.h>
#include <scripted_host.h>
#include <vrelcore/vlibc.h>
#include <vreldrgroup/snapshot/gsnap_create.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <memory>

#include "benchmarks.h"
#include "measure.h"
#include "raw.h"

namespace bench {

namespace {

// Group snapshots of `count` targets of a host whose targets take their snapshots in no time.
class Creation {
 public:
  // `time` counts the snapshots' times: never twice the same, for they name the group snapshots.
  Creation(const Catalogue& catalogue, int count, long& time)
      : catalogue_(catalogue),
        targets_(MakeTargets(count)),
        group_(targets_, catalogue.groupId),
        time_(time) {
    scripted_host::Install(&host_);
    Prepare();
  }
  ~Creation() { scripted_host::Install(nullptr); }
  Creation(const Creation&) = delete;
  Creation& operator=(const Creation&) = delete;

  // Gives every target its next snapshot and forgets the ones before.
  void Prepare() {
    ++time_;
    host_.calls.clear();
    for (const VrelDR::Target& target : targets_) {
      VrelDR::Operation::Snapshot snapshot;
      snapshot.create_time = static_cast<std::uint32_t>(time_);
      snapshot.snap_id = "00000001-77aa-4bcd-8123-000000000001";
      scripted_host::TargetScript& script = host_.targets[target.GetId()];
      script.snapshots.clear();
      script.next.assign(1, snapshot);
    }
  }

  bool Ours() {
    return VrelDRGroup::Operation::GsnapshotCreate(group_, meta_, catalogue_.dbDir, noReplicas_)
        .Run();
  }

  // The rows that creation writes, one durable insert each, and the run of the script with which it
  // brings the database up to date first.
  bool Raw() const {
    VrelDRGroup::Gsnapshot gsnap(VrelDRGroup::Utils::ToGsnapId(catalogue_.groupId, time_));
    gsnap.tag = catalogue_.groupId;
    gsnap.desc = meta_.desc;
    gsnap.gsnap_time = time_;
    gsnap.status = VrelDRGroup::kGsnapReady;
    const std::string path = catalogue_.dbDir + "/drgroup.db";
    if (VLIBCExec(test_support::kDbScript, "repair_db", catalogue_.linkDir.c_str(), nullptr,
                  nullptr) != 0) {
      return false;
    }
    for (const VrelDR::Target& target : targets_) {
      const VrelDRGroup::TargetSnapshot tsnap(target,
                                              host_.targets.at(target.GetId()).next[0].snap_id);
      if (!raw::InsertTargetSnapshot(path, tsnap, gsnap.gsnap_id)) return false;
    }
    return raw::InsertGsnapshot(path, gsnap);
  }

 private:
  static std::vector<VrelDR::Target> MakeTargets(int count) {
    std::vector<VrelDR::Target> targets;
    for (int i = 0; i < count; ++i) {
      targets.emplace_back("0001f3c4-5ac1-4d0f-9b1e-" + std::to_string(100'000'000'000 + i),
                           VrelDR::kTargetGuest);
    }
    return targets;
  }

  const Catalogue& catalogue_;
  std::vector<VrelDR::Target> targets_;
  VrelDRGroup::TargetList group_;
  long& time_;
  VrelDRGroup::GsnapMeta meta_{"nightly snapshot of the group", false,
                               VrelDRGroup::kCwCrashConsistent};
  Json::Value noReplicas_{Json::objectValue};
  scripted_host::Script host_;
};

}  // namespace

void RegisterCreate(Workplace& place) {
  const auto time = std::make_shared<long>(1'800'000'000);
  const std::pair<int, int> sizes[] = {{1, 100}, {10, 40}, {50, 15}};
  for (const auto& [targets, rounds] : sizes) {
    benchmark::RegisterBenchmark(
        ("create over " + std::to_string(targets) + " targets, us").c_str(),
        [&place, time, targets = targets](benchmark::State& state) {
          Creation creation(place.Writing(), targets, *time);
          MeasureTime(state,
                      {[&] { return creation.Ours(); }, [&] { return creation.Raw(); },
                       [&] { creation.Prepare(); }},
                      0);
        })
        ->UseManualTime()
        ->Iterations(rounds);
  }
}

}  // namespace bench
