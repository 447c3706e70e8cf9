#include "base/boundary.h"
#include "hold/writer_hold.h"
#include "vreldr/quiesce.h"

namespace VrelDR {

bool WriterQuiesce::Check(std::vector<std::string>& faults) const {
  return RunAndRecord(*this, [&] {
    WriterHold hold(means_);
    Status status = hold.Check();
    faults = hold.GetFaults();
    return status;
  });
}

bool WriterQuiesce::Try(QuiesceTrial& trial) const {
  return RunAndRecord(*this, [&] {
    WriterHold hold(means_);
    HoldEnd end;
    Status status = hold.Hold();
    if (status.IsOk()) status = hold.Release(end);
    trial.freeze_ms = static_cast<std::uint64_t>(end.frozen_after.count());
    trial.held_ms = static_cast<std::uint64_t>(end.held.count());
    trial.troubles = end.troubles;
    return status;
  });
}

}  // namespace VrelDR
