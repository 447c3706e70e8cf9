#pragma once

#include <vreldrgroup/snapshot/gsnap_create.h>

#include <optional>
#include <string>
#include <vector>

#include "catalogue_test.h"

namespace unit {

// A group "g1" of two targets that exist, whose next snapshots are s1 at 1700000000 and s2 four
// seconds later, and a creation of a group snapshot of them.
class GsnapCreate : public CatalogueTest {
 protected:
  GsnapCreate() {
    host.targets["t1"].next = {Snap(1700000000, "s1")};
    host.targets["t2"].next = {Snap(1700000004, "s2")};
  }

  // Makes the operation over the fixture's values and runs it.
  bool Run() {
    group.emplace(targets, groupId);
    create.emplace(*group, meta, dir, replicaMap);
    return create->Run();
  }

  std::string ErrText() const { return ToString(create->GetErr()); }

  // The call that takes a target's snapshot, with the arguments that it always has.
  static std::string Take(const std::string& id) {
    return "TakeSnapshot(" + id + ", \"\", false, false, \"\")";
  }

  // The calls that one successful target takes.
  static std::vector<std::string> CallsOf(const std::string& id, int type,
                                          const std::string& snap) {
    return {"TargetOperation(" + id + ", " + std::to_string(type) + ")",
            "IsExisted(" + id + ")",
            "ListSnapshots(" + id + ")",
            Take(id),
            "ListSnapshots(" + id + ")",
            "GetSnapshot(" + id + ", " + snap + ")"};
  }

  static std::vector<std::string> Join(std::vector<std::string> first,
                                       const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }

  // The line of DoCreateSnapshot about a target that failed with `err`.
  static auto TargetFailed(const std::string& target, const std::string& err) {
    return Err(kUnit, "DoCreateSnapshot",
               "Failed to create target snapshot [" + target +
                   "] of group [g1]since "
                   "err[" +
                   err + "]");
  }

  // The line of a rollback that finds no row of the group snapshot.
  static auto NoGroupRow() {
    return Err("snapshot/gsnap_op.cpp", "GsnapshotGet",
               "gsnap[g1-gsnap-1700000000] is not existed");
  }

  // The line of a rollback without any group snapshot.
  static auto NothingToRollBack() { return Err("snapshot/gsnap_delete", "Run", "Empty gsnapId"); }

  static constexpr char kUnit[] = "snapshot/gsnap_create";
  const std::string one = R"({"target_id":"t1","target_type":1})";
  const std::string two = R"({"target_id":"t2","target_type":3})";

  std::vector<VrelDR::Target> targets = {VrelDR::Target("t1", 1), VrelDR::Target("t2", 3)};
  std::string groupId = "g1";
  VrelDRGroup::GsnapMeta meta{"words", true, VrelDRGroup::kCwApplicationConsistent};
  std::string dir = dbDir;
  Json::Value replicaMap = Json::Value(Json::objectValue);
  std::optional<VrelDRGroup::TargetList> group;
  std::optional<VrelDRGroup::Operation::GsnapshotCreate> create;
};

}  // namespace unit
