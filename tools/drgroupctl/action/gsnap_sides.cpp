#include "action/gsnap_sides.h"

#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "action/plans.h"
#include "groups/catalogue_view.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using Ids = std::set<std::string>;

Ids IdsOf(const Group& group) {
  Ids ids;
  for (const VrelDR::Target& each : group.targets) ids.insert(each.GetId());
  return ids;
}

// Those of `ids` that `others` has not, in quotes.
std::string Missing(const Ids& ids, const Ids& others) {
  std::vector<std::string> names;
  for (const std::string& each : ids) {
    if (others.count(each) == 0) names.push_back(Quote(each));
  }
  return Join(names, ", ");
}

void RequireOtherCopies(const Group& group, const Group& other, const Ids& copies) {
  const std::string missing = Missing(copies, IdsOf(other));
  const std::string surplus = Missing(IdsOf(other), copies);
  if (missing.empty() && surplus.empty()) return;
  throw Failure(ExitCode::kRefused,
                "sync of group " + Quote(group.id) + " is refused, nothing was sent: group " +
                    Quote(other.id) + " is not that of the other copies of its targets" +
                    (missing.empty() ? "" : ": it has not " + missing) +
                    (surplus.empty() ? "" : ": what it has besides is " + surplus) +
                    ": name the group that \"protect --dr-group\" has made");
}

// What is said of the group snapshot that was made on the source side at this time.
VrelDRGroup::Gsnapshot FindMade(const Group& source, long time) {
  for (const VrelDRGroup::Gsnapshot& each : ListGsnaps(source.id, false)) {
    if (each.gsnap_time == time) return each;
  }
  return VrelDRGroup::Gsnapshot("");
}

}  // namespace

GsnapSides FindSides(const Group& group, const std::string& otherId) {
  GsnapSides sides{group, LoadGroup(otherId)};
  Ids copies;
  Ids sources;
  for (const VrelDR::Target& each : group.targets) {
    const VrelDR::DRPlan plan = RequireOnePlan(each.GetId());
    copies.insert(each.GetId() == plan.GetProtectedTargetId() ? plan.GetDRTargetId()
                                                              : plan.GetProtectedTargetId());
    sources.insert(plan.GetSourceTargetId());
  }
  RequireOtherCopies(group, sides.replica, copies);
  if (sources == copies) {
    std::swap(sides.source, sides.replica);
  } else if (sources != IdsOf(group)) {
    throw Failure(ExitCode::kRefused, "sync of group " + Quote(group.id) +
                                          " is refused, nothing was sent: some of its targets "
                                          "work, and copies of others: finish the switchover");
  }
  return sides;
}

std::string RecordLeft(const GsnapSides& sides) {
  ArrivedGsnap arrived;
  try {
    arrived = FindArrivedGsnap(sides.replica);
  } catch (const Failure& failure) {
    if (failure.code != ExitCode::kNotFound) throw;
    return {};  // nothing has arrived yet, or it is gone: then the sync puts it right
  }
  const VrelDR::CutInfo& cut = arrived.cut.info;
  const bool isOwn = arrived.cut.kind == GsnapCut::Kind::kOne && cut.is_made_by_sync &&
                     cut.members == static_cast<int>(sides.replica.targets.size());
  if (!isOwn || arrived.is_recorded) return {};
  const VrelDRGroup::Gsnapshot made = FindMade(sides.source, arrived.info.gsnap_time);
  return RecordArrived(sides.replica, arrived, made.desc, made.is_user_locked).gsnap_id;
}

std::unique_ptr<GroupLock> LockOther(const std::string& otherId, const std::string& ownId,
                                     std::chrono::seconds patience) {
  constexpr auto kPause = std::chrono::milliseconds(100);
  if (otherId == ownId) return nullptr;
  const auto end = std::chrono::steady_clock::now() + patience;
  for (;;) {
    try {
      return std::make_unique<GroupLock>(otherId);
    } catch (const Failure& failure) {
      if (failure.code != ExitCode::kBusy || std::chrono::steady_clock::now() > end) throw;
    }
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace drgroupctl
