// What an operator orders at one side, whatever becomes of the other one.
#include "protocol/decision_parts.h"
#include "protocol/lineage.h"

namespace VrelDR::Protocol {

// A replica works at a snapshot that arrived whole; whoever worked before goes on with its own
// bytes.
Decision ForceWork(const SideRecord& mine, const Attempt& order) {
  if (mine.facts.term.id == order.id) return {};
  if (!KnowsPlan(mine) || mine.state == SideState::kGone) return Refuse(Refusal::kNotAllowed);
  const bool isReplica = mine.state == SideState::kReplica;
  if (isReplica && !HasHead(mine, order.snap_id)) return Refuse(Refusal::kNotAllowed);
  const bool wasReplica = mine.state == SideState::kHeld && mine.facts.works != mine.side;
  if (wasReplica && order.snap_id.empty()) return Refuse(Refusal::kUncertain);
  if (!isReplica && !HasWholeCopy(mine)) return Refuse(Refusal::kNotAllowed);
  const bool isAtWork = mine.state == SideState::kWorks && !HasGivenUp(mine);
  if (isAtWork && !mine.apart.has_value()) return Refuse(Refusal::kNotAllowed);
  Decision decision;
  SideRecord record = mine;
  PutTerm(record, order.id);
  record.facts.works = record.side;
  record.facts.is_deleted = false;
  record.state = SideState::kWorks;
  EndAttempt(record);
  record.arriving.reset();
  if (isReplica || wasReplica) record.starts_at = order.snap_id;
  AddCommit(decision, record);
  AddPromotion(decision, record);
  return decision;
}

// The copy stays as it is. The locks stay too until the other side has heard of it: should both
// sides turn out to be changed, a replica that is kept after all starts at its newest snapshot.
Decision ForceDelete(const SideRecord& mine, const Attempt& order) {
  if (!KnowsPlan(mine) || mine.state == SideState::kGone) return Refuse(Refusal::kNotAllowed);
  Decision decision;
  SideRecord record = mine;
  PutTerm(record, order.id);
  record.facts.is_deleted = true;
  record.state = SideState::kGone;
  EndAttempt(record);
  if (mine.state == SideState::kReplica && !mine.heads.empty()) {
    record.starts_at = mine.heads.back().snap_id;
  }
  AddCommit(decision, record);
  return decision;
}

}  // namespace VrelDR::Protocol
