#include "action/gsnap_making.h"

#include <vreldr/target_operation.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/record/target_group.h>
#include <vreldrgroup/snapshot/gsnap_create.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <thread>

#include "groups/catalogue.h"
#include "groups/catalogue_view.h"
#include "groups/known_snapshots.h"
#include "host/host.h"
#include "output/console.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr const char* kCrash = "crash";
constexpr const char* kApp = "app";

using SnapshotIds = std::map<VrelDR::Target, std::set<std::string>>;

// Throws unless every target is there and can be asked: a group snapshot that is going to fail
// should take none.
void RequireTargets(const Group& group) {
  for (const VrelDR::Target& target : group.targets) {
    const VrelDR::TargetOperation operation(target);
    // No snapshot is called so: the host looks at the target and at none of its snapshots.
    operation.GetSnapshot("");
    if (operation.GetErrCode() == 0) continue;
    throw Failure(FromHostError(operation.GetErrCode()),
                  "group " + Quote(group.id) + ": " + HostMessage(operation));
  }
}

// The snapshots that the group's targets have now.
SnapshotIds ListSnapshotIds(const Group& group) {
  SnapshotIds ids;
  for (const VrelDR::Target& target : group.targets) {
    const VrelDR::TargetOperation operation(target);
    if (!operation.ListSnapshotIds(ids[target])) {
      throw Failure(FromHostError(operation.GetErrCode()),
                    "group " + Quote(group.id) + ": " + HostMessage(operation));
    }
  }
  return ids;
}

// What a failed creation left on the targets that nothing refers to, and the first target without a
// new snapshot, which is the one that failed: targets are taken in their order.
struct Leftovers {
  Json::Value rows = Json::Value(Json::arrayValue);
  std::string text;
  std::string failedTarget;

  void Add(const VrelDR::Target& target, const std::string& snapId, const std::string& problem) {
    Json::Value row(Json::objectValue);
    row["target_id"] = target.GetId();
    row["tsnap_id"] = snapId;
    row["problem"] = problem;
    rows.append(row);
    text += (text.empty() ? "" : ", ") + snapId + " of target " + Quote(target.GetId()) + " (" +
            problem + ")";
  }
};

// A snapshot that may be of this creation.
struct Taken {
  VrelDR::Target target;
  std::string snap_id;
  bool is_own = false;  // it carries the mark of this process; else nobody knows who took it
};

// What the targets have that nobody else has taken, in their order. `before` is what each had, for
// when this process has no mark of its own.
std::vector<Taken> FindTaken(Warnings& warnings, const Group& group, const SnapshotIds& before,
                             Leftovers& left) {
  const std::string maker = VrelDR::Operation::ThisMaker();
  std::vector<Taken> taken;
  for (const VrelDR::Target& target : group.targets) {
    const VrelDR::TargetOperation operation(target);
    const std::vector<VrelDR::Operation::Snapshot> now = operation.ListSnapshots();
    if (operation.GetErrCode() != 0) {
      warnings.Print("which snapshots stay on target " + Quote(target.GetId()) +
                     " cannot be told: " + HostMessage(operation));
    }
    const auto known = before.find(target);
    const std::size_t others = taken.size();
    for (const VrelDR::Operation::Snapshot& each : now) {
      if (each.maker != maker) continue;
      if (known != before.end() && known->second.count(each.snap_id) != 0) continue;
      taken.push_back({target, each.snap_id, !maker.empty()});
    }
    if (taken.size() == others && left.failedTarget.empty()) left.failedTarget = target.GetId();
  }
  return taken;
}

// Says why snapshots that nobody is known to need cannot be deleted; empty when `recorded` has all
// of `ids` that are needed.
std::string FindRecorded(const Group& group, const std::set<std::string>& ids,
                         std::set<std::string>& recorded) {
  try {
    recorded = AllRecordedAmong(ids, {group.id});
    return {};
  } catch (const Failure& failure) {
    recorded = RecordedAmong(ids);
    return failure.message;
  }
}

// Deletes again what this call has taken and nothing records: snapshots that carry the mark of this
// process. What cannot be deleted stays, as do new ones of which nobody knows who took them.
Leftovers RemoveTaken(Warnings& warnings, const Group& group, const SnapshotIds& before) {
  Leftovers left;
  const std::vector<Taken> taken = FindTaken(warnings, group, before, left);
  std::set<std::string> ids;
  for (const Taken& each : taken) ids.insert(each.snap_id);
  std::set<std::string> recorded;
  const std::string doubt = FindRecorded(group, ids, recorded);
  for (const Taken& each : taken) {
    if (recorded.count(each.snap_id) != 0) continue;
    const VrelDR::TargetOperation operation(each.target);
    if (!each.is_own) {
      left.Add(each.target, each.snap_id, "who took it is not known");
    } else if (!doubt.empty()) {
      left.Add(each.target, each.snap_id, "whether a group has it cannot be told: " + doubt);
    } else if (!operation.DeleteSnapshot(each.snap_id)) {
      left.Add(each.target, each.snap_id, HostMessage(operation));
    }
  }
  return left;
}

Failure CreationFailure(Warnings& warnings, const Group& group,
                        const VrelDRCore::ErrRecorder& operation, const std::string& said,
                        const SnapshotIds& before) {
  const Leftovers left = RemoveTaken(warnings, group, before);
  // What the host refuses has a message; what the catalogue refuses has none.
  Failure failure =
      operation.GetErrMsg().isNull()
          ? CatalogueFailure(group.id, "no group snapshot was made", said)
          : Failure(FromHostError(operation.GetErrCode()),
                    "group " + Quote(group.id) + ": no group snapshot was made: target " +
                        Quote(left.failedTarget) + ": " + HostMessage(operation));
  if (!left.text.empty()) {
    failure.message +=
        "; these target snapshots were taken before, stay, and belong to no group "
        "snapshot, delete them with \"drgroupctl target prune\": " +
        left.text;
  }
  if (!left.failedTarget.empty()) failure.details["target_id"] = left.failedTarget;
  failure.details["left_snapshots"] = left.rows;
  return failure;
}

// A group snapshot is called by the time of its first target's, which is later than that of any
// before it on that target. Waits for a moment, and then throws, when it could be one that the
// catalogue has: its creation would fail, and take back the one that was there.
void RequireNewName(const Group& group) {
  const std::vector<VrelDRGroup::Gsnapshot> latest = ListGsnaps(group.id, true);
  const std::int64_t newest = latest.empty() ? 0 : latest.front().gsnap_time;
  if (newest < std::time(nullptr)) return;
  const VrelDR::Target& first = group.targets.front();
  const VrelDR::TargetOperation operation(first);
  for (const VrelDR::Operation::Snapshot& each : operation.ListSnapshots()) {
    if (each.create_time >= newest) return;
  }
  for (int tries = 0; tries < 15; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (newest < std::time(nullptr)) return;
  }
  throw Failure(ExitCode::kRefused,
                "group " + Quote(group.id) + " has group snapshots of times up to " +
                    FormatTime(newest) + ", which lie ahead of this host's clock (" +
                    FormatTime(std::time(nullptr)) + "), and target " + Quote(first.GetId()) +
                    " has none so late: a new one could get the name of one of them; run it again "
                    "after that time, or see to the clock");
}

}  // namespace

Parameter RequireOption(const char* summary) {
  return {kRequire, Value::kChoice, "KIND", summary, false, false, {kCrash, kApp}};
}

void RequireConsistency(const Group& group, const GsnapCut& cut, const std::string& failed,
                        const Arguments& args) {
  const std::string required = args.Text(kRequire);
  const VrelDRGroup::GsnapCwType wanted = required.empty()   ? VrelDRGroup::kCwUnspecified
                                          : required == kApp ? VrelDRGroup::kCwApplicationConsistent
                                                             : VrelDRGroup::kCwCrashConsistent;
  if (ConsistencyOf(cut) >= wanted) return;
  const bool isCrash = ConsistencyOf(cut) == VrelDRGroup::kCwCrashConsistent;
  throw Failure(
      ExitCode::kRefused,
      "group " + Quote(group.id) + ": " + failed + ": it would be " +
          (isCrash ? "crash consistent only, as no command had its applications write their state"
                   : "not of one instant, as the snapshots took " +
                         std::to_string(cut.info.skew_ms) + " ms and nobody was held") +
          ": tell who writes its targets with \"drgroupctl group quiesce " + group.id + "\"");
}

void RequireRoomForGsnap(const Group& group, const std::string& failed) {
  RequireCatalogue(group.id, Access::kWrite);
  RequireNewName(group);
  const StderrCapture capture;
  if (VrelDRGroup::DRGroupDB::Init(group.directory, group.id, true)) return;
  throw CatalogueFailure(group.id, failed, capture.FirstLine());
}

GsnapMaking::GsnapMaking(const Group& group) : group_(group) {
  RequireCatalogue(group.id, Access::kWrite);
  RequireTargets(group);
  if (VrelDR::Operation::ThisMaker().empty()) before_ = ListSnapshotIds(group);
  RequireRoomForGsnap(group, "no group snapshot was made");
}

VrelDRGroup::GsnapshotInfo GsnapMaking::Make(const VrelDRGroup::GsnapMeta& meta,
                                             Warnings& warnings) const {
  const VrelDRGroup::TargetList targets(group_.targets, group_.id);
  const Json::Value noReplicas(Json::objectValue);
  VrelDRGroup::Operation::GsnapshotCreate operation(targets, meta, group_.directory, noReplicas);
  std::string said;
  bool isGood = false;
  {
    const StderrCapture capture;
    isGood = operation.Run();
    said = capture.FirstLine();
  }
  if (!isGood) throw CreationFailure(warnings, group_, operation, said, before_);
  return RequireGsnap(operation.GetGsnapshot().gsnap_id);
}

}  // namespace drgroupctl
