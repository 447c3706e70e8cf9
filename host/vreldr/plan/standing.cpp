#include "plan/standing.h"

#include "plan/checks.h"
#include "plan/host_plan.h"
#include "plan/plan_lock.h"
#include "target/target_look.h"

namespace VrelDR {

namespace {

TargetLook LookFor(const std::optional<TargetRow>& row, const std::string& targetId,
                   const std::string& snapId) {
  TargetLook look;
  look.row = row ? &*row : nullptr;
  look.target_id = targetId;
  look.snap_id = snapId;
  return look;
}

CopyStanding CopyOf(const TargetLook& look) {
  return {look.target_id, look.row == nullptr ? "" : look.row->volume, look.status.IsOk()};
}

// Whether the records and one look at the replica leave nothing open of what arrived: it has what
// is recorded, or nothing is, and nothing is on its way.
bool IsPlain(const PlanFacts& facts, const TargetLook& replica) {
  if (!replica.status.IsOk() || !facts.row.hand_snap_id.empty()) return false;
  return facts.recorded.snap_id.empty() || (facts.is_recorded_whole && replica.has_snapshot);
}

Status LookClosely(const DRPlan& record, ArrivedSnapshots& arrived) {
  HostPlan plan;
  Status status = plan.OpenToRead(record.GetPlanId());
  return status.IsOk() ? plan.LookAtArrived(arrived) : status;
}

bool GoesBack(const PlanFacts& facts) {
  HostPlan plan;
  return facts.row.is_reprotected && plan.OpenToRead(facts.row.plan.GetPlanId()).IsOk() &&
         Check::GoesBack(plan);
}

Status LookAtArrived(const PlanFacts& facts, const TargetLook& replica, ArrivedSnapshots& arrived) {
  if (replica.status.IsOk() && !IsPlain(facts, replica)) {
    return LookClosely(facts.row.plan, arrived);
  }
  arrived.recorded_id = facts.recorded.snap_id;
  arrived.recorded_time = facts.recorded.create_time;
  if (!replica.status.IsOk()) return replica.status;
  arrived.newest = facts.recorded;
  arrived.newest.path = replica.snapshot_path;
  return {};
}

Status SiteOf(const Host& host, PlanFacts& facts, bool isReached, DRSiteStatus& site) {
  const DRPlan& plan = facts.row.plan;
  if (facts.journal.state == OPState::kRunning) {
    Status status = LookWhoRuns(host, plan.GetPlanId(), facts.journal, site);
    if (!status.IsOk() || facts.journal.state == OPState::kRunning) return status;
  }
  site = !isReached                          ? kSiteUnreachable
         : plan.GetStatus() == kPlanFailover ? kSiteFailover
                                             : kSiteNormal;
  return {};
}

// How one plan stands, seeing what of all plans could not be read.
PlanStanding StandingOf(const Host& host, const ManyPlanFacts& all, PlanFacts& facts,
                        const TargetLook& source, const TargetLook& replica) {
  PlanStanding standing;
  standing.source = CopyOf(source);
  standing.replica = CopyOf(replica);
  Status status =
      all.recorded.IsOk() ? LookAtArrived(facts, replica, standing.arrived) : all.recorded;
  standing.is_recorded_known = all.recorded.IsOk();
  standing.arrived_problem = status.message;
  standing.arrived.is_going_back = GoesBack(facts);
  status = all.journals;
  if (status.IsOk()) {
    const bool isReached = standing.source.is_there && standing.replica.is_there;
    status = SiteOf(host, facts, isReached, standing.site);
  }
  if (!status.IsOk()) standing.unread.push_back(status.message);
  standing.op = facts.journal.op;
  standing.op_state =
      standing.site == kSiteInterrupted ? OPState::kInterrupted : facts.journal.state;
  standing.op_progress = facts.journal.progress;
  standing.op_message = std::move(facts.journal.message);
  if (all.pending.IsOk()) {
    standing.pending_count = facts.pending_count;
  } else {
    standing.unread.push_back(all.pending.message);
  }
  standing.hand_snap_id = std::move(facts.row.hand_snap_id);
  standing.plan = std::move(facts.row.plan);
  return standing;
}

}  // namespace

Status LookWhoRuns(const Host& host, const std::string& planId, JournalRow& journal,
                   DRSiteStatus& site) {
  Status status;
  bool isHeld = PlanLock::IsHeld(host.config.state_dir, planId);
  if (!isHeld) {  // perhaps as it has just ended, or the next one has begun
    status = host.store->Plans().GetJournal(planId, journal);
    isHeld = PlanLock::IsHeld(host.config.state_dir, planId);
  }
  site = isHeld ? kSiteWorking : kSiteInterrupted;
  return status;
}

Status ReadStandings(Host& host, const std::set<std::string>& targetIds,
                     std::vector<PlanStanding>& standings) {
  ManyPlanFacts facts;
  Status status = host.OpenIfMade();
  if (status.IsOk() && host.store) status = host.store->Plans().ReadFacts(targetIds, facts);
  if (!status.IsOk()) return status;
  std::vector<TargetLook> looks;
  looks.reserve(2 * facts.plans.size());
  for (const PlanFacts& each : facts.plans) {
    const DRPlan& plan = each.row.plan;
    looks.push_back(LookFor(each.source, plan.GetSourceTargetId(), {}));
    looks.push_back(LookFor(each.replica, plan.GetReplicaTargetId(), each.recorded.snap_id));
  }
  LookAtTargets(host, looks);
  standings.reserve(standings.size() + facts.plans.size());
  for (std::size_t i = 0; i < facts.plans.size(); ++i) {
    standings.push_back(StandingOf(host, facts, facts.plans[i], looks[2 * i], looks[2 * i + 1]));
  }
  return {};
}

}  // namespace VrelDR
