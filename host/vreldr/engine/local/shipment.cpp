#include "engine/local/shipment.h"

#include <algorithm>
#include <chrono>

#include "base/fail_point.h"
#include "base/kill_point.h"

namespace VrelDR::Local {

Status Shipment::BeginData() {
  if (has_data_) return {};
  has_data_ = true;
  KillPoint(kShipData);
  return FailPoint(kFailShipMiddle, replica_id_);
}

Status Shipment::Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent,
                      std::uint64_t activity) {
  Status status;
  if (sent > 0) status = BeginData();
  done_ = std::max(done_, done);
  if (status.IsOk()) status = watch_.Tell(std::min(done_, total), total, sent, activity);
  return status.IsOk() ? write_back_.GetStatus() : status;
}

Status Shipment::TellAll(std::uint64_t total, std::uint64_t sent) {
  Status status = BeginData();
  if (status.IsOk()) watch_.TellNow(total, total, sent);
  return status;
}

Flusher::~Flusher() {
  {
    const std::lock_guard lock(mutex_);
    ends_ = true;
  }
  ending_.notify_one();
  thread_.join();
}

void Flusher::Run(WriteBack& writeBack, ChangeMark* mark) {
  std::unique_lock lock(mutex_);
  while (!ending_.wait_for(lock, std::chrono::seconds(1), [this] { return ends_; })) {
    lock.unlock();
    const ChangePoint reached = mark == nullptr ? ChangePoint() : mark->GetReached();
    const bool isOnDisk = writeBack.Sync().IsOk();
    if (isOnDisk && mark != nullptr) mark->Keep(reached);
    lock.lock();
  }
}

}  // namespace VrelDR::Local
