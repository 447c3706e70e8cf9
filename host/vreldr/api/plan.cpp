#include <exception>

#include "plan/plan_lock.h"
#include "target/host.h"
#include "vreldr/plan.h"

namespace VrelDR {

namespace {

// Runs `body`, which gives a code of ErrCode; nothing thrown gets past it.
template <class Body>
int CodeOf(Body&& body) noexcept {
  try {
    return body().code;
  } catch (const std::exception&) {  // out of memory
    return kErrIo;
  }
}

Status Read(const std::function<Status(const PlanStore&, std::vector<PlanRow>&)>& read,
            std::vector<DRPlan>& plans) {
  Host host;
  std::vector<PlanRow> rows;
  Status status = host.OpenIfMade();
  if (host.store) status = read(host.store->Plans(), rows);
  for (PlanRow& each : rows) plans.push_back(std::move(each.plan));
  return status;
}

bool IsThere(Host& host, const std::string& targetId) {
  return HostTarget(host).OpenToRead(targetId).IsOk();
}

Status FindSiteStatus(const DRPlan& plan, DRSiteStatus& found) {
  Host host;
  std::optional<PlanRow> row;
  JournalRow journal;
  Status status = host.Open();
  if (status.IsOk()) status = host.store->Plans().GetPlan(plan.GetPlanId(), row);
  if (status.IsOk()) status = host.store->Plans().GetJournal(plan.GetPlanId(), journal);
  if (!status.IsOk() || !row) return status;
  const DRPlan& now = row->plan;
  if (journal.state == OPState::kRunning) {
    found =
        PlanLock::IsHeld(host.config.state_dir, now.GetPlanId()) ? kSiteWorking : kSiteInterrupted;
  } else if (!IsThere(host, now.GetSourceTargetId()) || !IsThere(host, now.GetReplicaTargetId())) {
    found = kSiteUnreachable;
  } else {
    found = now.GetStatus() == kPlanFailover ? kSiteFailover : kSiteNormal;
  }
  return {};
}

}  // namespace

namespace PlanAPI {

int GetPlan(const std::string& planId, DRPlan& plan) {
  return CodeOf([&]() -> Status {
    Host host;
    std::optional<PlanRow> row;
    Status status = host.OpenIfMade();
    if (host.store) status = host.store->Plans().GetPlan(planId, row);
    if (!status.IsOk()) return status;
    if (!row) return {kErrPlanMissing, {}};
    plan = std::move(row->plan);
    return {};
  });
}

DRPlan GetPlan(const std::string& planId) {
  DRPlan plan;
  (void)GetPlan(planId, plan);
  return plan;
}

int ListPlans(std::vector<DRPlan>& plans) {
  return CodeOf([&] {
    return Read([](const PlanStore& store, auto& rows) { return store.ListPlans(rows); }, plans);
  });
}

}  // namespace PlanAPI

namespace Utils {

bool SelectPlans(DRProtectedTargetType /*type*/, const std::string& targetId,
                 std::vector<DRPlan>& plans) {
  return CodeOf([&] {
           return Read([&](const PlanStore& store,
                           auto& rows) { return store.SelectPlans(targetId, rows); },
                       plans);
         }) == kErrNone;
}

DRSiteStatus GetPlanLocalSiteStatus(const DRPlan& plan) {
  DRSiteStatus found = kSiteUnknown;
  (void)CodeOf([&] { return FindSiteStatus(plan, found); });
  return found;
}

}  // namespace Utils

}  // namespace VrelDR
