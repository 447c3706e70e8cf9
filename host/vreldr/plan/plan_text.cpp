#include "plan/plan_text.h"

#include <ctime>

#include "base/status.h"

namespace VrelDR {

std::string NameOf(const DRPlan& plan) {
  return "plan " + Quoted(plan.GetPlanId()) + " of target " + Quoted(plan.GetProtectedTargetId());
}

std::string SideOf(const DRPlan& plan, const std::string& targetId) {
  return targetId == plan.GetDRTargetId() ? "the DR side" : "the main side";
}

std::string TimeText(std::uint32_t time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  char text[32];
  if (gmtime_r(&seconds, &parts) == nullptr) return {};
  return std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts) != 0 ? text : "";
}

std::string ListText(const std::vector<Operation::Snapshot>& snapshots) {
  constexpr std::size_t kMost = 5;
  if (snapshots.empty()) return "none";
  std::string text;
  std::size_t told = 0;
  for (auto each = snapshots.rbegin(); each != snapshots.rend() && told < kMost; ++each, ++told) {
    text +=
        (told == 0 ? "" : ", ") + Quoted(each->snap_id) + " (" + TimeText(each->create_time) + ")";
  }
  if (snapshots.size() > told) {
    text += " and " + std::to_string(snapshots.size() - told) + " older ones";
  }
  return text;
}

}  // namespace VrelDR
