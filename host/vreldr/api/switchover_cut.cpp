#include "vreldr/switchover_cut.h"

#include <algorithm>
#include <ctime>

#include "vreldrcore/uuid.h"

namespace VrelDR {

namespace {

constexpr char kMethod[] = "sources made unwritable";

thread_local SwitchoverCut* current = nullptr;

}  // namespace

SwitchoverCut::SwitchoverCut(int members, const Operation::Snapshot& begun) : before_(current) {
  const CutReporter reporter;
  CutInfo found;
  if (!begun.cut_id.empty() && reporter.Find(begun.cut_id, found) && found.method == kMethod) {
    info_ = found;
    info_.grade = CutGrade::kNone;
    gone_before_ = std::chrono::seconds(
        std::max<std::int64_t>(0, std::time(nullptr) - std::int64_t{begun.create_time}));
  } else {
    info_.id = VrelDRCore::GenerateUUID();
    info_.grade = CutGrade::kWritersHeld;
    info_.method = kMethod;
  }
  info_.members = members;
  current = this;
}

SwitchoverCut::~SwitchoverCut() {
  current = before_;
}

std::optional<CutInfo> SwitchoverCut::Join(const std::string& planId, bool isUnwritable) {
  if (current == nullptr || !current->plans_.insert(planId).second) return std::nullopt;
  CutInfo& info = current->info_;
  const Clock::time_point now = Clock::now();
  if (!current->begin_) current->begin_ = now;
  if (!isUnwritable) info.grade = CutGrade::kNone;
  info.skew_ms = static_cast<std::uint32_t>(
      std::chrono::ceil<std::chrono::milliseconds>(now - *current->begin_ + current->gone_before_)
          .count());
  return info;
}

}  // namespace VrelDR
