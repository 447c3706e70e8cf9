#include <chrono>
#include <thread>

#include "base/boundary.h"
#include "plan/checks.h"
#include "plan/plan_text.h"
#include "plan/plan_work.h"
#include "plan/sync.h"
#include "vreldr/operation.h"
#include "vreldr/utils.h"

namespace VrelDR {

namespace {

PlanWork SyncWork(std::function<Status(HostPlan&)> act) {
  PlanWork work;
  work.op = kOpSync;
  work.what = "sync";
  work.check = Check::Sync;
  work.act = std::move(act);
  return work;
}

}  // namespace

namespace Operation {

namespace {

constexpr std::chrono::seconds kStopWithin(10);

// Whether it is still the same run of an operation.
bool GoesOn(const HostPlan& plan, const std::string& stateDir, const JournalRow& run) {
  JournalRow now;
  return PlanLock::IsHeld(stateDir, plan.Get().GetPlanId()) &&
         plan.Records().GetJournal(plan.Get().GetPlanId(), now).IsOk() &&
         now.state == OPState::kRunning && now.pid == run.pid && now.begin_time == run.begin_time;
}

Status Stop(const std::string& planId, bool checkOnly) {
  HostPlan plan;
  Status status = plan.OpenToRead(planId);
  if (!status.IsOk() || checkOnly || plan.CheckIdle().IsOk()) return status;
  JournalRow run;
  status = plan.Records().GetJournal(planId, run);
  if (!status.IsOk() || (run.op != kOpSync && run.op != kOpSwitchover)) return status;
  status = plan.Records().AskToStop(planId);
  if (!status.IsOk()) return status;
  const std::string stateDir = plan.GetHost().config.state_dir;
  const auto deadline = std::chrono::steady_clock::now() + kStopWithin;
  while (GoesOn(plan, stateDir, run)) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return {kErrBusy, "cannot stop " + NameOf(plan.Get()) + ": " +
                            Quoted(Utils::ToString(run.op)) + " (process " +
                            std::to_string(run.pid) +
                            ") has been asked to end and has not yet; look again later"};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return {};
}

}  // namespace

PlanSync::PlanSync(const std::string& planId, const DataSyncParam& param)
    : plan_id_(planId), param_(param) {}

bool PlanSync::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] { return SyncPlan(plan_id_, param_, checkOnly); });
}

PlanSendWaiting::PlanSendWaiting(const std::string& planId) : plan_id_(planId) {}

bool PlanSendWaiting::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    return RunPlanWork(plan_id_, checkOnly, SyncWork([](HostPlan& plan) {
                         return PlanSyncer(plan, {}, 100).RunWaiting();
                       }));
  });
}

PlanSettle::PlanSettle(const std::string& planId) : plan_id_(planId) {}

bool PlanSettle::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    HostPlan plan;
    Status status = plan.OpenToRead(plan_id_);
    if (status.IsOk()) status = checkOnly ? plan.CheckIdle() : plan.Claim();
    if (status.IsOk() && !checkOnly) status = plan.Settle();
    return status.IsOk() ? status : InContext("cannot settle " + NameOf(plan.Get()), status);
  });
}

PlanStop::PlanStop(const std::string& planId) : plan_id_(planId) {}

bool PlanStop::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] { return Stop(plan_id_, checkOnly); });
}

}  // namespace Operation

Status SyncPlan(const std::string& planId, const DataSyncParam& param, bool checkOnly) {
  const auto sync = [&param](HostPlan& plan) {
    std::string snapId;
    return PlanSyncer(plan, param, 100).Run(Cuts::kUsed, snapId);
  };
  return RunPlanWork(planId, checkOnly, SyncWork(sync));
}

}  // namespace VrelDR
