#include <scripted_host.h>
#include <vreldrgroup/snapshot/gsnap_delete.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <string>

#include "benchmarks.h"
#include "measure.h"
#include "raw.h"

namespace bench {

namespace {

// A group snapshot of many targets at the end of a catalogue, deleted and recorded anew, on a host
// whose targets delete their snapshots in no time.
class Deletion {
 public:
  Deletion(const Catalogue& catalogue, int targets)
      : catalogue_(catalogue), path_(catalogue.dbDir + "/drgroup.db") {
    info_.tag = catalogue.groupId;
    info_.gsnap_time = 2'000'000'000;
    info_.status = VrelDRGroup::kGsnapReady;
    info_.gsnap_id = VrelDRGroup::Utils::ToGsnapId(info_.tag, info_.gsnap_time);
    for (long i = 0; i < targets; ++i) {
      const std::string number = std::to_string(100'000'000'000 + i);
      info_.target_snapshots.emplace_back(
          VrelDR::Target("0001f3c4-5ac1-4d0f-9b1e-" + number, VrelDR::kTargetGuest),
          // Spread over the index, as random identifiers are.
          std::to_string(10'000'000 + i * 7'919'777 % 90'000'000) + "-77aa-4bcd-8123-" + number);
    }
    scripted_host::Install(&host_);
  }
  ~Deletion() { scripted_host::Install(nullptr); }
  Deletion(const Deletion&) = delete;
  Deletion& operator=(const Deletion&) = delete;

  bool Prepare() {
    host_.calls.clear();
    for (const VrelDRGroup::TargetSnapshot& each : info_.target_snapshots) {
      host_.targets[each.target.GetId()].snapshots = {
          scripted_host::Snap(2'000'000'000, each.tsnap_id)};
    }
    return raw::AddGroupSnapshot(path_, info_);
  }

  bool Ours() const { return VrelDRGroup::Operation::GsnapshotDelete(info_.gsnap_id).Run(); }

  // The same statements by index: what there is of the group snapshot, then one durable deletion
  // for each target snapshot and one in each table.
  bool Raw() const {
    VrelDRGroup::GsnapshotInfo read("");
    if (!raw::ReadInfo(catalogue_.linkPath, info_.gsnap_id, read)) return false;
    for (const VrelDRGroup::TargetSnapshot& each : read.target_snapshots) {
      if (!raw::DeleteRows(path_, "target_snap_list", "tsnap_id", each.tsnap_id)) return false;
    }
    for (const char* table : {"gsnap_meta", "target_snap_list", "target_replica_list"}) {
      if (!raw::DeleteRows(path_, table, "gsnap_id", info_.gsnap_id)) return false;
    }
    return read.target_snapshots.size() == info_.target_snapshots.size();
  }

 private:
  const Catalogue& catalogue_;
  std::string path_;
  VrelDRGroup::GsnapshotInfo info_{""};
  scripted_host::Script host_;
};

}  // namespace

void RegisterDelete(Workplace& place) {
  benchmark::RegisterBenchmark("delete one of 1000 targets of 1000000 rows, us",
                               [&place](benchmark::State& state) {
                                 Deletion deletion(place.Deleting(1'000'000), 1000);
                                 bool isPrepared = deletion.Prepare();
                                 MeasureTime(state,
                                             {[&] { return isPrepared && deletion.Ours(); },
                                              [&] { return isPrepared && deletion.Raw(); },
                                              [&] { isPrepared = deletion.Prepare(); }},
                                             1.5);
                               })
      ->UseManualTime()
      ->Iterations(5);
}

}  // namespace bench
