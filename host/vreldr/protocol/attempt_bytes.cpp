// What is done for an attempt before its commit: all of it can be taken back.
#include <algorithm>

#include "protocol/decision_parts.h"

namespace VrelDR::Protocol {

namespace {

// Later than whatever either side has, as far as this side has heard.
void AddSnapshot(Decision& decision, SideRecord& record, const std::string& snapId) {
  AddStep(decision, StepKind::kTakeSnapshot, snapId);
  record.heads.push_back({snapId, ++record.newest_time});
}

}  // namespace

Decision PrepareCopy(const SideRecord& mine, const Attempt& attempt) {
  if (attempt.target_id.empty() || mine.side == attempt.works) return Refuse(Refusal::kNotAllowed);
  if (mine.progress != Progress::kBegun) return {};
  Decision decision;
  SideRecord record = mine;
  record.progress = Progress::kPrepared;
  AddStep(decision, StepKind::kMakeCopy, attempt.target_id);
  AddCommit(decision, record);
  return decision;
}

Decision TakeSnapshot(const SideRecord& mine, const Attempt& attempt) {
  if (attempt.op != Op::kSync || mine.side != attempt.works) return Refuse(Refusal::kNotAllowed);
  if (HasHead(mine, attempt.snap_id)) return {};
  Decision decision;
  SideRecord record = mine;
  AddSnapshot(decision, record, attempt.snap_id);
  AddCommit(decision, record);
  return decision;
}

Decision GiveUp(const SideRecord& mine, const Attempt& attempt) {
  if (!MovesWork(attempt.op) || mine.side == attempt.works) return Refuse(Refusal::kNotAllowed);
  if (mine.progress == Progress::kGivenUp) return {};
  Decision decision;
  SideRecord record = mine;
  AddUnwritable(decision, record);
  if (attempt.op == Op::kSwitchover) AddSnapshot(decision, record, attempt.snap_id);
  record.progress = Progress::kGivenUp;
  AddCommit(decision, record);
  return decision;
}

Decision Receive(const SideRecord& mine, const Request& request) {
  const std::string& snapId = request.attempt.snap_id;
  if (HasHead(mine, snapId)) return {};
  if (mine.state != SideState::kReplica) return Refuse(Refusal::kNotAllowed);
  if (!request.other.has_value() || !HasHead(*request.other, snapId)) {
    return Refuse(Refusal::kNoEvidence);
  }
  Head head;
  for (const Head& each : request.other->heads) {
    if (each.snap_id == snapId) head = each;
  }
  Decision decision;
  SideRecord record = mine;
  record.arriving = head;
  if (!(record.arriving == mine.arriving)) AddCommit(decision, record);
  AddStep(decision, StepKind::kReceiveBytes, snapId);
  record.arriving.reset();
  record.heads.push_back(head);
  record.newest_time = std::max(record.newest_time, head.time);
  AddCommit(decision, record);
  return decision;
}

}  // namespace VrelDR::Protocol
