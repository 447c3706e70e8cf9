#include "protocol/side_record.h"

#include <algorithm>

#include "protocol/lineage.h"

namespace VrelDR::Protocol {

bool HasHead(const SideRecord& record, const std::string& snapId) {
  return std::any_of(record.heads.begin(), record.heads.end(),
                     [&](const Head& each) { return each.snap_id == snapId; });
}

bool HasAttempt(const SideRecord& record, const std::string& attemptId) {
  return record.attempt.has_value() && record.attempt->id == attemptId;
}

bool HasCommitted(const SideRecord& record, const Attempt& attempt) {
  if (HasAttempt(record, attempt.id)) return record.progress == Progress::kCommitted;
  return IsInLine(record, attempt.id);
}

bool HasVoided(const SideRecord& record, const Attempt& attempt) {
  return record.attempts_heard >= attempt.number && !HasAttempt(record, attempt.id) &&
         !IsInLine(record, attempt.id);
}

bool MovesWork(Op op) {
  return op == Op::kSwitchover || op == Op::kFailover || op == Op::kRevert || op == Op::kResolve;
}

bool HasWholeCopy(const SideRecord& record) {
  return !record.arriving.has_value() || !record.starts_at.empty();
}

bool HasGivenUp(const SideRecord& record) {
  return record.attempt.has_value() && record.progress == Progress::kGivenUp;
}

}  // namespace VrelDR::Protocol
