#include "vreldrgroup/replication/replica_op.h"

#include <vreldr/plan.h>
#include <vreldr/report.h>

#include <algorithm>
#include <cstdint>

#include "replication/plan_use.h"

namespace VrelDRGroup::Operation {

namespace {

using VrelDRCore::JsonUtil::AsUInt64;
using VrelDRCore::JsonUtil::Member;

void SetMember(Json::Value& out, const std::string& key, const Json::Value& value) {
  if (!out.isObject()) out = Json::Value(Json::objectValue);
  out[key] = value;
}

bool IsSync(const std::string& taskName) {
  return taskName == "sync" || taskName == "tmp_sync";
}

// How much of all that the plans' syncs have to do is done, in percent. False when one of them
// cannot tell, or when their sums make no sense.
bool SyncPercent(const std::set<std::string>& planIds, int& percent) {
  std::uint64_t synced = 0;
  std::uint64_t total = 0;
  for (const std::string& planId : planIds) {
    VrelDR::SyncReport report;
    if (!VrelDR::PlanReporter(planId, VrelDR::kReportSync).ReadReport(report)) return false;
    const Json::Value record = report.GetSyncRecord().ToResponse();
    synced += AsUInt64(Member(record, "sync_size_byte"));
    total += AsUInt64(Member(record, "total_size_byte"));
  }
  if (total == 0 || total < synced) return false;
  percent = static_cast<int>(static_cast<double>(synced) * 100.0 / static_cast<double>(total));
  return true;
}

// How far the action is on average over `targetCount` targets, in percent: a plan that does
// something else counts as 0. False when a plan cannot tell.
bool ActionPercent(const std::set<std::string>& planIds, const std::string& taskName,
                   std::size_t targetCount, int& percent) {
  std::int64_t sum = 0;
  for (const std::string& planId : planIds) {
    VrelDR::SiteOPJournal journal;
    if (!VrelDR::SiteOPJournalReporter(planId).ReadReport(journal)) return false;
    if (VrelDR::Utils::ToString(journal.GetOPStatus()) == taskName) sum += journal.GetProgress();
  }
  percent = static_cast<int>(sum / static_cast<std::int64_t>(targetCount));
  return true;
}

}  // namespace

int ReplicaPlanIdGet(const std::string& target, std::string& planId) {
  std::vector<VrelDR::DRPlan> plans;
  if (Utils::PlanSelect(target, plans) <= 0) return -1;
  planId = plans.front().GetPlanId();
  return 0;
}

void ReplicaTargetIdGet(const std::string& planId, std::string& targetId) {
  targetId = VrelDR::PlanAPI::GetPlan(planId).GetProtectedTargetId();
}

void ReplicaTargetList(const std::vector<std::string>& planIds,
                       std::vector<std::string>& targetIds) {
  for (const std::string& planId : planIds) {
    ReplicaTargetIdGet(planId, targetIds.emplace_back());
  }
}

int ReplicaPlanList(const std::set<std::string>& targets, std::set<std::string>& planIds) {
  int result = 0;
  for (const std::string& target : targets) {
    std::string planId;
    if (ReplicaPlanIdGet(target, planId) == 0) {
      planIds.insert(planId);
    } else {
      result = -1;
    }
  }
  return result;
}

int PlanInfoGet(const std::set<std::string>& planIds, Json::Value& out) {
  std::vector<VrelDR::DRPlan> plans;
  if (Utils::PlanList(planIds, plans) != 0) return -1;
  for (const VrelDR::DRPlan& plan : plans) {
    SetMember(out, plan.GetPlanId(), static_cast<int>(VrelDR::Utils::GetPlanLocalSiteStatus(plan)));
  }
  return 0;
}

int PlanSyncReportGet(const std::set<std::string>& planIds, Json::Value& out) {
  for (const std::string& planId : planIds) {
    VrelDR::SyncReport report;
    VrelDR::PlanSyncReporter(planId).ReadReport(report);
    SetMember(out, planId, report.ToResponse());
  }
  return 0;
}

int ReplicaLastSnapIdGet(const std::string& target, std::string& snapId) {
  std::string planId;
  if (ReplicaPlanIdGet(target, planId) != 0) return -1;
  VrelDR::RetentionLockReport report;
  VrelDR::RetentionLockReporter(planId).ReadReport(report);
  snapId = report.GetLastSnapshot();
  return 0;
}

void ReplicaProgressAppr(const std::set<std::string>& targets, const std::string& taskName,
                         int& progress) {
  std::set<std::string> planIds;
  if (targets.empty() || ReplicaPlanList(targets, planIds) != 0) return;
  int percent = 0;
  const bool known = IsSync(taskName) ? SyncPercent(planIds, percent)
                                      : ActionPercent(planIds, taskName, targets.size(), percent);
  if (known) progress = std::max(percent, progress);
}

}  // namespace VrelDRGroup::Operation
