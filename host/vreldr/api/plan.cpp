#include "vreldr/plan.h"
#include "base/boundary.h"
#include "plan/standing.h"
#include "target/host.h"

namespace VrelDR {

namespace {

Status Read(const std::function<Status(const PlanStore&, std::vector<PlanRow>&)>& read,
            std::vector<DRPlan>& plans) {
  const std::shared_ptr<Host> host = TheHost();
  std::vector<PlanRow> rows;
  Status status = host->OpenIfMade();
  if (host->store) status = read(host->store->Plans(), rows);
  for (PlanRow& each : rows) plans.push_back(std::move(each.plan));
  return status;
}

bool IsThere(Host& host, const std::string& targetId) {
  return HostTarget(host).OpenToRead(targetId).IsOk();
}

Status FindSiteStatus(const DRPlan& plan, DRSiteStatus& found) {
  const std::shared_ptr<Host> host = TheHost();
  std::optional<PlanRow> row;
  JournalRow journal;
  Status status = host->Open();
  if (status.IsOk()) status = host->store->Plans().GetPlan(plan.GetPlanId(), row);
  if (status.IsOk()) status = host->store->Plans().GetJournal(plan.GetPlanId(), journal);
  if (!status.IsOk() || !row) return status;
  const DRPlan& now = row->plan;
  if (journal.state == OPState::kRunning) {
    status = LookWhoRuns(*host, now.GetPlanId(), journal, found);
    if (!status.IsOk() || journal.state == OPState::kRunning) return status;
  }
  if (!IsThere(*host, now.GetSourceTargetId()) || !IsThere(*host, now.GetReplicaTargetId())) {
    found = kSiteUnreachable;
  } else {
    found = now.GetStatus() == kPlanFailover ? kSiteFailover : kSiteNormal;
  }
  return {};
}

}  // namespace

bool PlanReader::List(std::vector<DRPlan>& plans) const {
  return RunAndRecord(*this, [&] {
    return Read([](const PlanStore& store, auto& rows) { return store.ListPlans(rows); }, plans);
  });
}

bool PlanReader::Select(const std::string& targetId, std::vector<DRPlan>& plans) const {
  return RunAndRecord(*this, [&] {
    return Read(
        [&](const PlanStore& store, auto& rows) { return store.SelectPlans(targetId, rows); },
        plans);
  });
}

bool PlanReader::Get(const std::string& planId, DRPlan& plan) const {
  return RunAndRecord(*this, [&]() -> Status {
    const std::shared_ptr<Host> host = TheHost();
    std::optional<PlanRow> row;
    Status status = host->OpenIfMade();
    if (host->store) status = host->store->Plans().GetPlan(planId, row);
    if (!status.IsOk()) return status;
    if (!row) {
      return {kErrPlanMissing, "plan " + Quoted(planId) + " does not exist; list the plans"};
    }
    plan = std::move(row->plan);
    return {};
  });
}

namespace PlanAPI {

int GetPlan(const std::string& planId, DRPlan& plan) {
  const PlanReader reader;
  (void)reader.Get(planId, plan);
  return reader.GetErrCode();
}

DRPlan GetPlan(const std::string& planId) {
  DRPlan plan;
  (void)GetPlan(planId, plan);
  return plan;
}

int ListPlans(std::vector<DRPlan>& plans) {
  const PlanReader reader;
  (void)reader.List(plans);
  return reader.GetErrCode();
}

}  // namespace PlanAPI

namespace Utils {

bool SelectPlans(DRProtectedTargetType /*type*/, const std::string& targetId,
                 std::vector<DRPlan>& plans) {
  return PlanReader().Select(targetId, plans);
}

DRSiteStatus GetPlanLocalSiteStatus(const DRPlan& plan) {
  DRSiteStatus found = kSiteUnknown;
  (void)RunAndRecord(DRErrRecorder(), [&] { return FindSiteStatus(plan, found); });
  return found;
}

}  // namespace Utils

}  // namespace VrelDR
