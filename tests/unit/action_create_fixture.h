#pragma once

#include "any_action.h"
#include "plan_test.h"

namespace unit {

// A test of an action that makes plans, on a host whose connections between two volumes are known.
class CreationTest : public PlanTest {
 protected:
  CreationTest() {
    host.local_src_conn = Conn("local source", "0.0.0.1");
    host.local_dst_conn = Conn("local destination", "0.0.0.2");
    host.calls.clear();
  }

  static std::string ConnJson(const std::string& credId, const std::string& address) {
    return R"({"controller_id":0,"cred_id":")" + credId + R"(","replica_addr":")" + address +
           R"(","replica_port":5566})";
  }
  static VrelDR::PlanRemoteConn Conn(const std::string& credId, const std::string& address) {
    VrelDR::PlanRemoteConn conn;
    EXPECT_TRUE(conn.FromJson(Json(ConnJson(credId, address))));
    return conn;
  }

  // A connection that was never filled, as it stands in a call.
  static std::string NoConn() { return scripted_host::Text(VrelDR::PlanRemoteConn()); }

  // What every plan begins as, between this node and another.
  static std::string PlanBetween(const std::string& main, const std::string& dr,
                                 const std::string& target) {
    return "[\"\", " + target + " 1, 8, 3, " + main + ", " + dr + ", 3]";
  }

  // The making of a plan between two volumes of this node, and of one to another node.
  std::string LocalCreation(const std::string& target) const {
    return "PlanLocalCreate(" + PlanBetween("here", "here", target) + ", vol2, \"\", " +
           ConnJson("local source", "0.0.0.1") + ", " + ConnJson("local destination", "0.0.0.2") +
           ", disabled)";
  }
  static std::string RemoteCreation(const std::string& target, const std::string& src,
                                    const std::string& dst) {
    return "PlanCreate(" + PlanBetween("here", "there", target) + ", vol2, \"\", [" + src + "], [" +
           dst + "], disabled, false)";
  }

  // Prepares the action and expects that this succeeds; forgets the calls that it took.
  static void Prepare(const AnyAction& action, const std::set<std::string>& targets,
                      Json::Value params) {
    EXPECT_EQ(action.PreAct(targets, params), 0);
  }

  // The operation of a target; expects that `err` stays as it was.
  static std::unique_ptr<VrelDR::DROperation> Generate(const AnyAction& action,
                                                       const std::string& target) {
    int err = 7;
    auto operation = action.GenOperation(target, err);
    EXPECT_EQ(err, 7);
    return operation;
  }

  const Json::Value local = Json(R"({"dst_vol": "vol2", "dr_node_id": "here"})");
  const Json::Value remote = Json(
      R"({"dst_vol": "vol2", "dr_node_id": "there", "dst_ip": "10.0.0.2", "src_cred_id": "cred-s",
          "src_ip": "10.0.0.1", "dst_cred_id": "cred-d"})");
  // The connections that these make: each side's credential with the other's address.
  const std::string remoteSrc = ConnJson("cred-s", "10.0.0.2");
  const std::string remoteDst = ConnJson("cred-d", "10.0.0.1");
};

}  // namespace unit
