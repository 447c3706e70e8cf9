#include <gmock/gmock.h>
#include <json/reader.h>

#include <memory>
#include <string>

#include "vreldr/operation.h"
#include "vreldr/plan.h"
#include "vreldr/report.h"
#include "vreldrcore/json.h"

// The values of plans and reports, and what JSON they take and give.

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Json::Value Parse(const std::string& text) {
  Json::Value json;
  std::string problem;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &json, &problem)) << problem;
  return json;
}

TEST(PlanValueTest, ThePartsOfTheTargetsFollowFromDirectionAndStatus) {
  VrelDR::DRPlan plan;
  plan.SetProtectedTargetId("main");
  plan.SetDRTargetId("dr");
  plan.SetStatus(VrelDR::kPlanNormal);
  EXPECT_EQ(plan.GetSourceTargetId(), "main");
  EXPECT_EQ(plan.GetReplicaTargetId(), "dr");
  EXPECT_EQ(plan.GetWorkingTargetId(), "main");
  plan.SetStatus(VrelDR::kPlanFailover);
  EXPECT_EQ(plan.GetWorkingTargetId(), "dr");
  plan.SetDirection(VrelDR::kDRToMain);
  EXPECT_EQ(plan.GetSourceTargetId(), "dr");
  EXPECT_EQ(plan.GetReplicaTargetId(), "main");
  EXPECT_EQ(plan.GetWorkingTargetId(), "main");
}

TEST(PlanValueTest, AConnectionTakesAWholeObjectOrNothing) {
  const std::string good =
      R"({"controller_id": 0, "cred_id": "c", "replica_port": 5566, "replica_addr": "10.0.0.1"})";
  VrelDR::PlanRemoteConn conn;
  ASSERT_TRUE(conn.FromJson(Parse(good)));
  EXPECT_EQ(conn.ToJson(), Parse(good));
  EXPECT_EQ(conn.GetCredId(), "c");
  EXPECT_EQ(conn.GetReplicaPort(), 5566);
  EXPECT_EQ(conn.GetReplicaAddr(), "10.0.0.1");
  for (const char* member : {"controller_id", "cred_id", "replica_port", "replica_addr"}) {
    Json::Value json = Parse(good);
    json.removeMember(member);
    EXPECT_FALSE(conn.FromJson(json)) << member;
    json[member] = Json::Value(Json::arrayValue);
    EXPECT_FALSE(conn.FromJson(json)) << member;
  }
  for (const int port : {-1, 0, 65536}) {
    Json::Value json = Parse(good);
    json["replica_port"] = port;
    EXPECT_FALSE(conn.FromJson(json)) << port;
  }
  EXPECT_FALSE(conn.FromJson(Json::Value("text")));
  EXPECT_EQ(conn.ToJson(), Parse(good));
}

TEST(PlanValueTest, ALocalPlanHasConnectionsOfItsOwn) {
  VrelDR::PlanRemoteConn source;
  VrelDR::PlanRemoteConn destination;
  VrelDR::Operation::PlanCreateBase::GetLocalReplicaConns("v2", source, destination);
  EXPECT_EQ(source.GetReplicaPort(), 5566);
  EXPECT_THAT(destination.GetReplicaAddr(), testing::Not(IsEmpty()));
}

TEST(PlanValueTest, ASyncParameterSurvivesItsJsonForm) {
  VrelDR::DataSyncParam param;
  param.with_pending = true;
  param.stop_source = true;
  param.meta = VrelDR::Operation::SnapshotMeta("text", true, false, "me");
  const Json::Value json = param.ToJson();
  EXPECT_EQ(json, Parse(R"({"with_pending": true, "is_full": false, "stop_source": true,
      "is_encrypted": false, "meta": {"description": "text", "is_locked": true,
      "is_app_consistent": false, "taken_by": "me"}})"));
  VrelDR::DataSyncParam other;
  EXPECT_TRUE(other.FromJson(json));
  EXPECT_EQ(other.ToJson(), json);
  EXPECT_TRUE(other.FromJson(Json::Value()));
  EXPECT_TRUE(other.FromJson(Parse(R"({"with_pending": "no", "meta": 3, "is_full": true})")));
  EXPECT_TRUE(other.with_pending);
  EXPECT_TRUE(other.is_full);
  EXPECT_EQ(other.meta.description, "text");
  EXPECT_FALSE(other.FromJson(Json::Value(3)));
}

TEST(PlanValueTest, OperationsAreCalledAsTheirActionsAre) {
  using VrelDR::Utils::ToString;
  EXPECT_EQ(ToString(VrelDR::kOpNone), "");
  EXPECT_EQ(ToString(VrelDR::kOpCreate), "create");
  EXPECT_EQ(ToString(VrelDR::kOpSync), "sync");
  EXPECT_EQ(ToString(VrelDR::kOpStop), "stop");
  EXPECT_EQ(ToString(VrelDR::kOpDelete), "delete");
  EXPECT_EQ(ToString(VrelDR::kOpEdit), "edit");
  EXPECT_EQ(ToString(VrelDR::kOpPromote), "promote");
  EXPECT_EQ(ToString(VrelDR::kOpSwitchover), "switchover");
  EXPECT_EQ(ToString(VrelDR::kOpFailover), "failover");
  EXPECT_EQ(ToString(VrelDR::kOpReprotect), "reprotect");
  EXPECT_EQ(ToString(static_cast<VrelDR::DRPlanOPStatus>(3)), "");
}

TEST(PlanValueTest, ASyncReportGivesWhatItTakesAndPassesOverOtherKinds) {
  using VrelDRCore::JsonUtil::ToString;  // to which a number is a number, whatever its kind
  const Json::Value json = Parse(R"({"state": "failed", "snap_id": "s", "record": {
      "sync_size_byte": 18446744073709551615, "total_size_byte": 2, "sent_size_byte": 3,
      "begin_time": 4294967295, "end_time": 5}})");
  VrelDR::SyncReport report;
  report.FromJson(json);
  EXPECT_EQ(ToString(report.ToResponse()), ToString(json));
  EXPECT_EQ(report.GetState(), VrelDR::OPState::kFailed);
  report.FromJson(Parse(R"({"state": 3, "snap_id": [], "record": {"sync_size_byte": -1,
      "total_size_byte": "2", "begin_time": 4294967296}})"));
  EXPECT_EQ(ToString(report.ToResponse()), ToString(json));
  report.FromJson(Json::Value("text"));
  EXPECT_EQ(ToString(report.ToResponse()), ToString(json));
}

TEST(PlanValueTest, TheOtherReportsPassOverOtherKinds) {
  VrelDR::RetentionLockReport locks;
  EXPECT_EQ(locks.GetLastSnapshot(), "");
  locks.FromJson(Parse(R"({"snapshots": ["a", 3, "b"]})"));
  EXPECT_THAT(locks.GetSnapshots(), ElementsAre("a", "b"));
  EXPECT_EQ(locks.GetLastSnapshot(), "b");
  locks.FromJson(Parse(R"({"snapshots": "c"})"));
  EXPECT_EQ(locks.GetLastSnapshot(), "b");
  VrelDR::PendingSnapReport pending;
  pending.FromJson(Parse(R"({"snapshots": ["p"]})"));
  EXPECT_THAT(pending.GetSnapshots(), ElementsAre("p"));
  VrelDR::SiteOPJournal journal;
  journal.FromJson(Parse(R"({"op_status": 128, "state": "running", "progress": 40,
      "begin_time": 7, "message": "m"})"));
  journal.FromJson(Parse(R"({"op_status": "x", "state": "odd", "progress": null})"));
  EXPECT_EQ(journal.GetOPStatus(), VrelDR::kOpFailover);
  EXPECT_EQ(journal.GetState(), VrelDR::OPState::kRunning);
  EXPECT_EQ(journal.GetProgress(), 40);
  EXPECT_EQ(journal.GetBeginTime(), 7U);
  EXPECT_EQ(journal.GetMessage(), "m");
}

}  // namespace
}  // namespace host_test
