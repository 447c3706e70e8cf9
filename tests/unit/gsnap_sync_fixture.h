#pragma once

#include <vreldrgroup/snapshot/gsnap_sync.h>

#include <optional>

#include "plan_test.h"

namespace unit {

// A group "g1" of two targets that exist. Replication has brought s1, of 1700000000, and s2, four
// seconds younger, over for them; t1 has an older snapshot as well.
class GsnapSync : public PlanTest {
 protected:
  GsnapSync() {
    host.targets["t1"].snapshots = {Snap(1600000000, "s0"), Snap(1700000000, "s1")};
    host.targets["t2"].snapshots = {Snap(1700000004, "s2")};
    Arrived("p1", R"(["s0", "s1"])");
    Arrived("p2", R"(["s2"])");
  }

  // The snapshots that a plan has brought over.
  void Arrived(const std::string& plan, const std::string& snapshots) {
    host.reports[{plan, VrelDR::kReportRetentionLock}]["snapshots"] = Json(snapshots);
  }

  // Makes the operation over the fixture's values and runs it.
  bool Run() {
    group.emplace(targets, groupId);
    sync.emplace(*group, meta, dir, replicaMap);
    return sync->Run();
  }

  std::string ErrText() const { return ToString(sync->GetErr()); }

  // The calls that one successful target takes; only the first target's snapshot is looked at.
  static std::vector<std::string> CallsOf(const std::string& number, int type) {
    return {"TargetOperation(t" + number + ", " + std::to_string(type) + ")",
            "IsExisted(t" + number + ")", Select("t" + number),
            "RetentionLockReporter(p" + number + ", 2).ReadReport()"};
  }
  static std::vector<std::string> CallsOfFirst() {
    return Join(CallsOf("1", 1), {"GetSnapshot(t1, s1)"});
  }

  static std::vector<std::string> Join(std::vector<std::string> first,
                                       const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }

  static auto LongSaid(const std::string& function, const std::string& message) {
    return Err(kUnit, function, message);
  }
  // The line about a target for which nothing has arrived.
  static auto NothingArrived(const std::string& target) {
    return ShortErr(kUnit, "Failed to get lastest LUN snapshot id of target [" + target + "].");
  }
  // The line about a target that failed with `err`.
  static auto TargetFailed(const std::string& target, const std::string& err) {
    return LongSaid("DoSyncSnapshot", "Failed to sync target snapshot [" + target +
                                          "] of group [g1] since err[" + err + "]");
  }

  static constexpr char kUnit[] = "snapshot/gsnap_sync";
  static constexpr char kNotCompleted[] = R"({"err_code":407})";
  const std::string one = R"({"target_id":"t1","target_type":1})";
  const std::string two = R"({"target_id":"t2","target_type":3})";

  std::vector<VrelDR::Target> targets = {VrelDR::Target("t1", 1), VrelDR::Target("t2", 3)};
  std::string groupId = "g1";
  VrelDRGroup::GsnapMeta meta{"words", true, VrelDRGroup::kCwApplicationConsistent};
  std::string dir = dbDir;
  Json::Value replicaMap = Json::Value(Json::objectValue);
  std::optional<VrelDRGroup::TargetList> group;
  std::optional<VrelDRGroup::Operation::GsnapshotSync> sync;
};

}  // namespace unit
