#include "base/boundary.h"
#include "base/kill_point.h"
#include "plan/host_plan.h"
#include "plan/plan_text.h"
#include "vreldr/operation.h"

namespace VrelDR {

// The bytes first: without them the snapshot in hand is sent anew, but without its record nobody
// would look for them.
Status HostPlan::DropShipment(std::string& snapId) {
  snapId = GetRow().hand_snap_id;
  {
    HostTarget replica(*host_);
    Status status = OpenToWrite(Get().GetReplicaTargetId(), replica);
    if (status.IsOk()) {
      status = InContext(replica.Cannot("drop what is on its way to"), DropShipments(replica, {}));
    }
    if (!status.IsOk()) return status;
  }
  KillPoint(kDropBytesGone);
  if (snapId.empty()) return {};
  Status status = Records().DropShipment(Get(), snapId);
  KillPoint(kDropDone);
  return status.IsOk() ? Refresh() : status;
}

Status HostPlan::ListShortOfRoom(std::vector<PlanRow>& plans) const {
  std::vector<PlanRow> all;
  std::optional<TargetRow> own;
  Status status = Records().ListPlans(all);
  if (status.IsOk()) status = GetStore().GetTarget(Get().GetReplicaTargetId(), own);
  for (PlanRow& each : all) {
    if (!status.IsOk() || !own) break;
    if (each.hand_failures == 0) continue;
    std::optional<TargetRow> replica;
    status = GetStore().GetTarget(each.plan.GetReplicaTargetId(), replica);
    if (replica && replica->volume == own->volume) plans.push_back(std::move(each));
  }
  return status;
}

namespace Operation {

namespace {

Status Drop(const std::string& planId, bool checkOnly, std::string& dropped) {
  HostPlan plan;
  Status status = plan.OpenToRead(planId);
  if (!status.IsOk()) return status;
  const std::string cannot = "cannot drop the shipment of " + NameOf(plan.Get());
  if (checkOnly) return InContext(cannot, plan.CheckIdle());
  status = plan.Claim();
  if (status.IsOk()) status = plan.Settle();
  if (status.IsOk()) status = plan.DropShipment(dropped);
  return InContext(cannot, status);
}

}  // namespace

PlanDropShipment::PlanDropShipment(const std::string& planId) : plan_id_(planId) {}

bool PlanDropShipment::Run(bool checkOnly) {
  dropped_.clear();
  return RunAndRecord(*this, [&] { return Drop(plan_id_, checkOnly, dropped_); });
}

}  // namespace Operation

}  // namespace VrelDR
