#include "action/gsnap_sides.h"

#include <vreldr/target_operation.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "action/plans.h"
#include "groups/catalogue_view.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
#include "output/console.h"
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

using Parts = std::map<std::string, std::string>;  // snapshots by their targets

Parts PartsOf(const VrelDRGroup::GsnapshotInfo& gsnap) {
  Parts parts;
  for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
    parts[each.target.GetId()] = each.tsnap_id;
  }
  return parts;
}

// A replica with the times of the snapshots that it has.
struct Replica {
  VrelDR::Target target;
  std::string source_id;
  std::map<std::string, std::uint32_t> times;
};

std::vector<Replica> LookAtReplicas(const Group& group) {
  std::vector<Replica> replicas;
  for (const VrelDR::Target& each : group.targets) {
    Replica replica{each, RequireOnePlan(each.GetId()).GetSourceTargetId(), {}};
    const VrelDR::TargetOperation operation(each);
    for (const auto& snapshot : operation.ListSnapshots()) {
      replica.times[snapshot.snap_id] = snapshot.create_time;
    }
    if (operation.GetErrCode() != 0) ThrowHostError(operation);
    replicas.push_back(std::move(replica));
  }
  return replicas;
}

// The parts that the replicas have of a group snapshot, with its time there. False when one of them
// has none.
bool FindShipped(const std::vector<Replica>& replicas, const Parts& parts,
                 VrelDRGroup::GsnapshotInfo& shipped) {
  for (const Replica& each : replicas) {
    const auto part = parts.find(each.source_id);
    if (part == parts.end()) return false;
    const auto time = each.times.find(part->second);
    if (time == each.times.end()) return false;
    if (shipped.target_snapshots.empty()) shipped.gsnap_time = time->second;
    shipped.target_snapshots.emplace_back(each.target, part->second);
  }
  return true;
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

std::string RecordLeft(const GsnapSides& sides, Warnings& warnings) {
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
  if (isOwn && arrived.is_recorded &&
      PartsOf(RequireGsnap(arrived.info.gsnap_id)) != PartsOf(arrived.info)) {
    warnings.Print("the cut " + cut.id + " that has arrived is not recorded: group snapshot " +
                   Quote(arrived.info.gsnap_id) + " has its name, and other parts");
  }
  if (!isOwn || arrived.is_recorded) return {};
  const VrelDRGroup::Gsnapshot made = FindMade(sides.source, arrived.info.gsnap_time);
  return RecordArrived(sides.replica, arrived, made.desc, made.is_user_locked).gsnap_id;
}

std::vector<std::string> RecordShipped(const GsnapSides& sides) {
  std::map<std::string, Parts> parts;
  for (const auto& each : RecordedSnapshots(sides.source.id)) {
    parts[each.gsnap_id][each.target.GetId()] = each.tsnap_id;
  }
  std::vector<std::string> known = ListGsnapIds(sides.replica.id);
  std::ranges::sort(known);
  const std::vector<Replica> replicas = LookAtReplicas(sides.replica);
  std::vector<std::string> recorded;
  for (const VrelDRGroup::Gsnapshot& each : ListGsnaps(sides.source.id, false)) {
    VrelDRGroup::GsnapshotInfo shipped("");
    if (!FindShipped(replicas, parts[each.gsnap_id], shipped)) continue;
    const std::string id = VrelDRGroup::Utils::ToGsnapId(sides.replica.id, shipped.gsnap_time);
    if (std::ranges::binary_search(known, id)) continue;
    const GsnapCut cut = CutOf(shipped);
    VrelDRGroup::Utils::InitGroupSnapshot(
        shipped, sides.replica.id,
        VrelDRGroup::GsnapMeta(each.desc, each.is_user_locked, ConsistencyOf(cut)));
    shipped.gsnap_id = id;
    RecordEarlier(sides.replica, shipped);
    recorded.push_back(id);
  }
  return recorded;
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
