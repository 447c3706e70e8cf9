#include "vreldr/cut.h"

#include "base/boundary.h"
#include "plan/guard.h"
#include "plan/put_in_hand.h"
#include "target/held_writers.h"
#include "target/target_cut.h"

namespace VrelDR {

namespace {

// Taking up asks again, under the lock; whoever is refused then should be before.
Status CheckChangeable(Host& host, const std::vector<Target>& targets) {
  Status status = host.Open();
  for (const Target& each : targets) {
    if (!status.IsOk()) break;
    status = InContext("cannot take a snapshot of target " + Quoted(each.GetId()),
                       Guard::CheckChangeable(*host.store, each.GetId()));
  }
  return status;
}

}  // namespace

Cut::Cut() = default;
Cut::~Cut() = default;

bool Cut::Prepare(const std::vector<Target>& targets, const QuiesceMeans& means) {
  return RunAndRecord(*this, [&]() -> Status {
    if (cut_) return {kErrBadArgument, "a cut is prepared once; make another one"};
    const std::shared_ptr<Host> host = TheHost();
    Status status = CheckChangeable(*host, targets);
    if (!status.IsOk()) return status;
    std::vector<std::string> ids;
    ids.reserve(targets.size());
    for (const Target& each : targets) ids.push_back(each.GetId());
    HeldWriters writers(means);
    cut_ = std::make_unique<TargetCut>(host);
    status = cut_->Prepare(std::move(ids), writers);
    troubles_ = writers.GetTroubles();
    if (status.IsOk()) info_ = cut_->GetInfo();
    return status;
  });
}

bool Cut::PutInHand(const std::vector<std::string>& planIds, const Operation::SnapshotMeta& meta,
                    bool isMadeBySync) {
  return RunAndRecord(*this, [&]() -> Status {
    if (info_.id.empty()) return {kErrBadArgument, "the cut is not prepared; prepare it first"};
    Status status = VrelDR::PutInHand(*cut_, planIds, meta, isMadeBySync);
    if (status.IsOk()) info_.is_made_by_sync = isMadeBySync;
    return status;
  });
}

bool CutReporter::Find(const std::string& cutId, CutInfo& info) const {
  bool isFound = false;
  return RunAndRecord(*this,
                      [&] {
                        const std::shared_ptr<Host> host = TheHost();
                        Status status = host->OpenIfMade();
                        std::optional<CutInfo> found;
                        if (host->store) status = host->store->GetCut(cutId, found);
                        isFound = found.has_value();
                        if (found) info = std::move(*found);
                        return status;
                      }) &&
         isFound;
}

}  // namespace VrelDR
