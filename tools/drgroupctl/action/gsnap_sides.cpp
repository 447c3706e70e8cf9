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
#include "groups/catalogue_rows.h"
#include "groups/catalogue_view.h"
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

using Parts = std::map<std::string, std::string>;  // snapshots by their targets

Parts PartsOf(const VrelDRGroup::GsnapshotInfo& gsnap) {
  Parts parts;
  for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
    parts[each.target.GetId()] = each.tsnap_id;
  }
  return parts;
}

// A replica, with the target that it is the copy of.
struct Replica {
  VrelDR::Target target;
  std::string source_id;
};

// Throws unless every replica can be asked.
std::vector<Replica> LookAtReplicas(const Group& group) {
  std::vector<Replica> replicas;
  for (const VrelDR::Target& each : group.targets) {
    replicas.push_back({each, RequireOnePlan(each.GetId()).GetSourceTargetId()});
    const VrelDR::TargetOperation operation(each);
    operation.GetSnapshot("");
    if (operation.GetErrCode() != 0) ThrowHostError(operation);
  }
  return replicas;
}

// The snapshots of the first replica by which nothing that is recorded there is called. A group
// snapshot that was shipped and is not recorded there has one of them.
std::map<std::string, std::uint32_t> FindUnrecorded(const Group& group) {
  const std::vector<std::string> ids = ListGsnapIds(group.id);
  const Ids known(ids.begin(), ids.end());
  const VrelDR::TargetOperation operation(group.targets.front());
  std::map<std::string, std::uint32_t> times;
  for (const auto& each : operation.ListSnapshots()) {
    const std::string id = VrelDRGroup::Utils::ToGsnapId(group.id, each.create_time);
    if (known.count(id) == 0) times[each.snap_id] = each.create_time;
  }
  if (operation.GetErrCode() != 0) ThrowHostError(operation);
  return times;
}

// The group snapshots of the source side that have one of these snapshots of a target as a part,
// with their parts, the oldest first.
std::vector<VrelDRGroup::GsnapshotInfo> FindMadeOf(
    const Group& source, const std::string& target,
    const std::map<std::string, std::uint32_t>& snapshots) {
  Ids snapIds;
  for (const auto& each : snapshots) snapIds.insert(each.first);
  const CatalogueRows rows(source.id);
  Ids gsnapIds;
  rows.VisitPartsAmong({snapIds.begin(), snapIds.end()}, [&](const CatalogueRows::Part& part) {
    if (part.target.GetId() == target) gsnapIds.insert(part.gsnap_id);
  });
  std::vector<VrelDRGroup::GsnapshotInfo> made;
  for (const std::string& id : gsnapIds) {
    const auto gsnap = rows.FindGsnap(id);
    if (!gsnap) continue;  // it is recorded in part only
    VrelDRGroup::GsnapshotInfo& info = made.emplace_back(*gsnap);
    for (const auto& part : rows.PartsOf(id)) info.target_snapshots.push_back(part);
  }
  std::ranges::sort(made, {}, &VrelDRGroup::Gsnapshot::gsnap_time);
  return made;
}

// The parts that the replicas have of a group snapshot; empty when one of them has none. Throws
// when that cannot be told.
std::vector<VrelDRGroup::TargetSnapshot> FindShipped(const Group& group,
                                                     const std::vector<Replica>& replicas,
                                                     const Parts& parts, std::int64_t gsnapTime) {
  std::vector<VrelDRGroup::TargetSnapshot> shipped;
  for (const Replica& each : replicas) {
    const auto part = parts.find(each.source_id);
    if (part == parts.end() && !group.NeedsPart(each.target.GetId(), gsnapTime)) continue;
    if (part == parts.end()) return {};
    const VrelDR::TargetOperation operation(each.target);
    if (operation.GetSnapshot(part->second).snap_id.empty()) {
      if (operation.GetErrCode() != 0) ThrowHostError(operation);
      return {};
    }
    shipped.emplace_back(each.target, part->second);
  }
  return shipped;
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
  const auto made = CatalogueRows(sides.source.id).FindGsnapOfTime(arrived.info.gsnap_time);
  return RecordArrived(sides.replica, arrived, made ? made->desc : "", made && made->is_user_locked)
      .gsnap_id;
}

std::vector<std::string> RecordShipped(const GsnapSides& sides) {
  const std::vector<Replica> replicas = LookAtReplicas(sides.replica);
  auto unrecorded = FindUnrecorded(sides.replica);
  const std::string& first = replicas.front().source_id;
  std::vector<std::string> recorded;
  for (const VrelDRGroup::GsnapshotInfo& each : FindMadeOf(sides.source, first, unrecorded)) {
    const Parts parts = PartsOf(each);
    const auto time = unrecorded.find(parts.at(first));
    VrelDRGroup::GsnapshotInfo shipped("");
    shipped.target_snapshots = FindShipped(sides.replica, replicas, parts, each.gsnap_time);
    if (shipped.target_snapshots.empty() || time == unrecorded.end()) continue;
    VrelDRGroup::Utils::InitGroupSnapshot(
        shipped, sides.replica.id,
        VrelDRGroup::GsnapMeta(each.desc, each.is_user_locked, ConsistencyOf(CutOf(shipped))));
    shipped.gsnap_time = time->second;
    shipped.gsnap_id = VrelDRGroup::Utils::ToGsnapId(sides.replica.id, shipped.gsnap_time);
    RecordEarlier(sides.replica, shipped);
    recorded.push_back(shipped.gsnap_id);
    unrecorded.erase(time);
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
