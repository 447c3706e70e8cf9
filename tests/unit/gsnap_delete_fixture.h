#pragma once

#include <vreldrgroup/snapshot/gsnap_delete.h>

#include <string>

#include "catalogue_test.h"

namespace unit {

// A group "g1" with the group snapshot g1-gsnap-10 of two targets, and another of one of them.
class GsnapDelete : public CatalogueTest {
 protected:
  GsnapDelete() {
    MakeCatalogue();
    AddMeta(id, 10);
    AddSnap("t1", 1, "s1", id);
    AddSnap("t2", 3, "s2", id);
    AddReplica("t1", "r1", id);
    AddReplica("t2", "r2", id);
    AddMeta("g1-gsnap-20", 20);
    AddSnap("t1", 1, "s3", "g1-gsnap-20");
    AddReplica("t1", "r1", "g1-gsnap-20");
    host.targets["t1"].snapshots = {Snap(10, "s1"), Snap(20, "s3")};
    host.targets["t2"].snapshots = {Snap(11, "s2")};
  }

  std::string ErrText() const { return ToString(operation.GetErr()); }

  // Expects that nothing but the other group snapshot is in the catalogue.
  void ExpectOnlyTheOther() const {
    EXPECT_THAT(MetaRows(), ElementsAre("'d'|0|0|'g1-gsnap-20'|'g1'|20|1"));
    EXPECT_THAT(SnapRows(), ElementsAre("'t1'|1|'s3'|'g1-gsnap-20'"));
    EXPECT_THAT(ReplicaRows(), ElementsAre("'t1'|'r1'|'g1-gsnap-20'"));
  }

  static auto Failed(const std::string& function, const std::string& message) {
    return Err(kUnit, function, message);
  }
  static auto Warned(const std::string& function, const std::string& message) {
    return Warn(kUnit, function, message);
  }

  static constexpr char kUnit[] = "snapshot/gsnap_delete";
  const std::string id = "g1-gsnap-10";
  const std::string one = R"({"target":{"target_id":"t1","target_type":1},"tsnap_id":"s1"})";
  const std::string two = R"({"target":{"target_id":"t2","target_type":3},"tsnap_id":"s2"})";
  VrelDRGroup::Operation::GsnapshotDelete operation{id};
};

}  // namespace unit
