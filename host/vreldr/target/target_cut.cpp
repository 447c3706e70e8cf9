#include "target/target_cut.h"

#include <algorithm>
#include <ctime>
#include <map>

#include "base/kill_point.h"
#include "engine/support/side_by_side.h"
#include "target/cut_parts.h"
#include "vreldrcore/uuid.h"

namespace VrelDR {

namespace {

using Clock = std::chrono::steady_clock;

// Begun ones count as whole.
std::uint32_t MillisecondsOf(Clock::duration time) {
  return static_cast<std::uint32_t>(std::chrono::ceil<std::chrono::milliseconds>(time).count());
}

// Releases writers who are held, whatever happens.
class Holding {
 public:
  explicit Holding(CutWriters& writers) : writers_(writers) {}
  ~Holding() {
    if (is_held_) (void)writers_.Release();
  }
  Holding(const Holding&) = delete;
  Holding& operator=(const Holding&) = delete;

  Status Begin() {
    Status status = writers_.Hold();
    is_held_ = status.IsOk();
    return status;
  }
  Status End() {
    is_held_ = false;
    return writers_.Release();
  }

 private:
  CutWriters& writers_;
  bool is_held_ = false;
};

}  // namespace

TargetCut::~TargetCut() {
  const std::vector<CutParts::Part> left = CutParts::Withdraw(info_.id);
  for (const Member& each : members_) {
    const bool isLeft = std::ranges::any_of(left, [&](const CutParts::Part& part) {
      return part.first == each.opened->GetTarget().GetId();
    });
    if (isLeft) (void)CleanUpSnapshots(*each.opened);
  }
}

Status TargetCut::Prepare(std::vector<std::string> targetIds, CutWriters& writers) {
  std::ranges::sort(targetIds);
  const auto twice = std::ranges::adjacent_find(targetIds);
  if (targetIds.empty()) return {kErrBadArgument, "a cut needs a target; name one"};
  if (twice != targetIds.end()) {
    return {kErrBadArgument, "target " + Quoted(*twice) + " is named twice; name it once"};
  }
  Status status = writers.Check();
  // In the order of identifiers: of two cuts that want the same targets one gets them all.
  if (status.IsOk()) status = Open(targetIds);
  if (status.IsOk()) status = Record();
  if (status.IsOk()) {
    KillPoint(kCutRecorded);
    status = Make(writers);
    if (status.IsOk()) status = host_->store->AddCut(info_);
    if (!status.IsOk()) Drop();
  }
  if (status.IsOk()) {
    Offer();
  } else {
    members_.clear();  // with their locks
  }
  return status;
}

const Operation::Snapshot* TargetCut::FindSnapshot(const std::string& targetId) const {
  const auto found = std::ranges::find_if(
      members_, [&](const Member& each) { return each.opened->GetTarget().GetId() == targetId; });
  return found == members_.end() ? nullptr : &found->snapshot;
}

Status TargetCut::Open(const std::vector<std::string>& targetIds) {
  Status status;
  for (const std::string& each : targetIds) {
    Member& member = members_.emplace_back();
    member.opened = std::make_unique<HostTarget>(*host_);
    if (status.IsOk()) status = member.opened->OpenToWrite(each);
  }
  return status;
}

Status TargetCut::Record() {
  info_.id = VrelDRCore::GenerateUUID();
  info_.members = static_cast<int>(members_.size());
  std::vector<Store::NewSnapshot> added;
  for (Member& each : members_) {
    each.snapshot.snap_id = VrelDRCore::GenerateUUID();
    each.snapshot.cut_id = info_.id;
    each.snapshot.maker = Operation::ThisMaker();
    added.push_back({each.opened->GetTarget().GetId(), &each.snapshot});
  }
  return host_->store->AddSnapshots(added);
}

// A sync gives a snapshot to a replica too, whose times go on as well.
Status TargetCut::ChooseTime(std::uint32_t& time) const {
  time = static_cast<std::uint32_t>(std::time(nullptr));
  Status status;
  for (const Member& each : members_) {
    const std::string& id = each.opened->GetTarget().GetId();
    time = std::max(time, each.opened->GetRow().last_snap_time + 1);
    std::vector<PlanRow> plans;
    if (status.IsOk()) status = host_->store->Plans().SelectPlans(id, plans);
    for (const PlanRow& row : plans) {
      std::optional<TargetRow> replica;
      if (status.IsOk()) status = host_->store->GetTarget(row.plan.GetReplicaTargetId(), replica);
      if (replica) time = std::max(time, replica->last_snap_time + 1);
    }
  }
  return status;
}

Status TargetCut::PrepareEngines(Cuts& cuts) const {
  // Two kinds of engines may call different things the same.
  std::map<std::pair<std::string, std::string>, std::vector<CutMember>> domains;
  for (const Member& each : members_) {
    Volume* volume = nullptr;
    std::string domain;
    const StorageEngine& engine = each.opened->GetEngine();
    Status status = host_->FindVolume(each.opened->GetRow().volume, volume);
    if (status.IsOk()) status = engine.GetCutDomain(domain, host_->watcher);
    if (!status.IsOk()) return InContext(each.opened->Cannot("take a snapshot of"), status);
    domains[{volume->engine_name, domain}].push_back(
        {&engine, each.opened->GetPlace(), each.snapshot.snap_id});
  }
  Status status;
  for (const auto& [domain, members] : domains) {
    std::unique_ptr<EngineCut> cut;
    if (status.IsOk()) status = members[0].engine->PrepareCut(members, host_->watcher, cut);
    cuts.push_back(std::move(cut));
  }
  return status;
}

Status TargetCut::TakeOnce(const Cuts& cuts, CutWriters& writers,
                           std::vector<CutOutcome>& outcomes) {
  outcomes.assign(cuts.size(), {});
  std::vector<Job> jobs;
  for (std::size_t i = 0; i < cuts.size(); ++i) {
    jobs.emplace_back([&, i](Watcher& watcher) { return cuts[i]->Take(watcher, outcomes[i]); });
  }
  const Clock::time_point begun = Clock::now();
  Holding holding(writers);
  Status status = holding.Begin();
  if (!status.IsOk()) return status;
  status = RunSideBySide(jobs, jobs.size(), host_->watcher);
  const Status released = holding.End();
  if (writers.AreHeld()) info_.held_ms = MillisecondsOf(Clock::now() - begun);
  return status.IsOk() ? released : status;
}

Status TargetCut::RemoveAll() const {
  Status status;
  for (const Member& each : members_) {
    if (!status.IsOk()) break;
    status = each.opened->GetEngine().RemoveSnapshot(each.opened->GetPlace(), each.snapshot.snap_id,
                                                     host_->watcher);
  }
  return status;
}

Status TargetCut::TakeAll(CutWriters& writers, Cuts& cuts, std::vector<CutOutcome>& outcomes,
                          const CutWriters*& held) {
  held = writers.AreHeld() ? &writers : nullptr;
  const bool mayGoOn =
      cuts.size() == 1 && cuts.front()->MayBeOneInstant() && !writers.AreConsistent();
  if (held == nullptr || !mayGoOn) return TakeOnce(cuts, writers, outcomes);
  CutWriters nobody;
  Status status = TakeOnce(cuts, nobody, outcomes);
  if (status.IsOk() && outcomes.front().is_one_instant) {
    held = nullptr;
    return {};
  }
  cuts.clear();
  if (status.IsOk()) status = RemoveAll();
  if (status.IsOk()) status = PrepareEngines(cuts);
  return status.IsOk() ? TakeOnce(cuts, writers, outcomes) : status;
}

void TargetCut::Judge(const std::vector<CutOutcome>& outcomes, const CutWriters* held) {
  Clock::time_point begin = outcomes.front().begin;
  Clock::time_point end = outcomes.front().end;
  for (const CutOutcome& each : outcomes) {
    begin = std::min(begin, each.begin);
    end = std::max(end, each.end);
    if (info_.method.find(each.method) == std::string::npos) {
      info_.method += (info_.method.empty() ? "" : ", ") + each.method;
    }
  }
  const bool isOneInstant = outcomes.size() == 1 && outcomes.front().is_one_instant;
  info_.grade = isOneInstant      ? CutGrade::kOneInstant
                : held != nullptr ? CutGrade::kWritersHeld
                                  : CutGrade::kNone;
  info_.skew_ms = isOneInstant ? 0 : MillisecondsOf(end - begin);
  info_.is_app_consistent = held != nullptr && held->AreConsistent();
}

Status TargetCut::Make(CutWriters& writers) {
  Cuts cuts;
  std::uint32_t time = 0;
  Status status = PrepareEngines(cuts);
  std::vector<CutOutcome> outcomes;
  const CutWriters* held = nullptr;
  if (status.IsOk()) status = ChooseTime(time);
  if (status.IsOk()) status = TakeAll(writers, cuts, outcomes, held);
  KillPoint(kCutTaken);
  std::vector<Job> jobs;
  for (const auto& cut : cuts) {
    jobs.emplace_back([&](Watcher& watcher) { return cut->Settle(watcher); });
  }
  if (status.IsOk()) status = RunSideBySide(jobs, jobs.size(), host_->watcher);
  KillPoint(kCutSettled);
  if (!status.IsOk()) return InContext("cannot take the snapshots of a cut", status);
  for (Member& each : members_) each.snapshot.create_time = time;
  Judge(outcomes, held);
  return {};
}

void TargetCut::Offer() {
  std::vector<CutParts::Part> parts;
  for (Member& each : members_) {
    parts.emplace_back(each.opened->GetTarget().GetId(),
                       CutPart{each.snapshot, each.opened->ReleaseLock()});
  }
  CutParts::Offer(info_.id, std::move(parts));
}

void TargetCut::Drop() {
  for (const Member& each : members_) (void)CleanUpSnapshots(*each.opened);
}

}  // namespace VrelDR
