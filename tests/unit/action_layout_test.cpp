#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "any_action.h"

namespace unit {
namespace {

// Programs make actions themselves: what an action is made of is part of the interface.

using namespace VrelDRGroup::ActionPolicy;

// The members of the actions, in their order.
struct OfSync {
  VrelDR::DataSyncParam sync_param;
};
struct OfSwitchover {
  VrelDR::DataSyncParam sync_param;
  Json::Value target_map;
};
struct OfDelete {
  bool is_site_del, is_data_deleted, is_drsite_deleted;
  std::string last_target;
};
struct OfEditCleanup {
  bool is_site_del;
  Json::Value target_plan_map;
};
struct OfReprotectChecker {
  bool is_mainsite;
};
struct OfCreation {
  bool is_local;
  VrelDR::DRPlan plan;
  std::string dst_vol;
  VrelDR::PlanRemoteConn src_conn, dst_conn;
  VrelDR::AsyncSchedulePolicy schedule;
};
struct OfEditPrepare {
  bool is_local;
  VrelDR::DRPlan plan;
  std::string dst_vol;
  VrelDR::PlanRemoteConn src_conn, dst_conn;
  VrelDR::AsyncSchedulePolicy schedule;
  Json::Value target_plan_map;
};
struct OfFailover {
  Json::Value target_snap_map;
  bool is_forced;
};
struct OfReprotect {
  bool is_mainsite, reprotect_flag;
};
struct OfNone {};

template <class Tag, class Members>
struct Layout {
  using Action = ActionImpl<Tag>;
  using Expected = Members;
};

template <class Row>
class ActionLayout : public testing::Test {};

using Layouts = testing::Types<
    Layout<CreatePartial, OfCreation>, Layout<Create, OfCreation>, Layout<Sync, OfSync>,
    Layout<Del, OfDelete>, Layout<Stop, OfNone>, Layout<Switchover, OfSwitchover>,
    Layout<Failover, OfFailover>, Layout<Reprotect, OfReprotect>,
    Layout<EditPrepare, OfEditPrepare>, Layout<EditCleanup, OfEditCleanup>,
    Layout<SyncChecker, OfNone>, Layout<DelChecker, OfNone>, Layout<SwitchoverChecker, OfNone>,
    Layout<FailoverChecker, OfNone>, Layout<ReprotectChecker, OfReprotectChecker>,
    Layout<TmpCreate, OfCreation>, Layout<TmpSync, OfSync>, Layout<TmpSyncStop, OfNone>,
    Layout<TmpSwitchover, OfSync>, Layout<TmpDel, OfDelete>>;
TYPED_TEST_SUITE(ActionLayout, Layouts);

TYPED_TEST(ActionLayout, IsAPlainClassOfItsMembers) {
  using Action = typename TypeParam::Action;
  using Expected = typename TypeParam::Expected;
  EXPECT_FALSE(std::is_polymorphic_v<Action>);
  EXPECT_TRUE(std::is_standard_layout_v<Action>);
  EXPECT_TRUE(std::is_default_constructible_v<Action>);
  EXPECT_EQ(sizeof(Action), sizeof(Expected));
  EXPECT_EQ(alignof(Action), alignof(Expected));
}

TEST(ActionTags, AreTwentyEmptyTypes) {
  EXPECT_EQ(AllTags().size(), 20U);
  EXPECT_TRUE(std::is_empty_v<Create>);
  EXPECT_TRUE(std::is_empty_v<IntToType<0>>);
}

TEST(ActionState, BeginsWithAFreshSyncParameterAndFlagsThatAreFalse) {
  EXPECT_EQ(SwitchoverState().sync_param.ToJson(), VrelDR::DataSyncParam().ToJson());
  EXPECT_TRUE(SwitchoverState().target_map.isNull());
  EXPECT_FALSE(DeleteState().is_site_del);
  EXPECT_EQ(DeleteState().last_target, "");
  EXPECT_FALSE(FailoverState().is_forced);
  EXPECT_FALSE(ReprotectState().reprotect_flag);
}

}  // namespace
}  // namespace unit
