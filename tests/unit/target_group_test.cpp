#include <gmock/gmock.h>
#include <vreldrgroup/record/target_group.h>

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Target;
using VrelDRGroup::TargetList;

TEST(TargetList, IsNamedAfterItsIdentifier) {
  const TargetList group({Target("t1", 1)}, "g1");
  EXPECT_EQ(group.GetId(), "g1");
  EXPECT_EQ(group.GetName(), "g1");
}

TEST(TargetList, ListsItsTargetsAsTheyWereGiven) {
  const TargetList group({Target("t2", 2), Target("t1", 1), Target("t2", 2)}, "g1");
  EXPECT_THAT(group.ListTargets(), ElementsAre(Target("t2", 2), Target("t1", 1), Target("t2", 2)));
}

TEST(TargetList, MayBeEmpty) {
  const TargetList group({}, "");
  EXPECT_EQ(group.GetId(), "");
  EXPECT_EQ(group.GetName(), "");
  EXPECT_THAT(group.ListTargets(), IsEmpty());
}

TEST(TargetList, HandsOutACopyOfItsTargets) {
  const TargetList group({Target("t1", 1)}, "g1");
  group.ListTargets().clear();
  EXPECT_THAT(group.ListTargets(), ElementsAre(Target("t1", 1)));
}

TEST(TargetList, KeepsItsTargetsWhenTheCallersListChanges) {
  std::vector<Target> targets = {Target("t1", 1)};
  const TargetList group(targets, "g1");
  targets.clear();
  EXPECT_THAT(group.ListTargets(), ElementsAre(Target("t1", 1)));
}

}  // namespace
}  // namespace unit
