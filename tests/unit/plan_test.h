#pragma once

#include <vreldr/plan.h>

#include <string>

#include "catalogue_test.h"
#include "record_values.h"
#include "text.h"

namespace unit {

using scripted_host::Call;
using test_support::ShortErr;

// A test on a host "here" with three targets, t1, t2 and t3, each of which has one plan, p1, p2 and
// p3, between the sites "main of p1" and "dr of p1", and so on.
class PlanTest : public CatalogueTest {
 protected:
  PlanTest() {
    host.node_id = "here";
    for (const std::string number : {"1", "2", "3"}) {
      host.plans["t" + number] = {MakePlan("p" + number, "t" + number)};
    }
  }

  static VrelDR::DRPlan MakePlan(const std::string& planId, const std::string& target) {
    VrelDR::DRPlan plan;
    plan.SetPlanId(planId);
    plan.SetProtectedTargetId(target);
    plan.SetProtectedTargetType(1);
    plan.SetMainSite("main of " + planId);
    plan.SetDRSite("dr of " + planId);
    return plan;
  }

  // Such a plan as an argument of a call.
  static std::string PlanText(const std::string& planId, const std::string& target) {
    return scripted_host::Text(MakePlan(planId, target));
  }

  void GiveSecondPlan(const std::string& target) {
    host.plans[target].push_back(MakePlan("second of " + target, target));
  }

  // From now on the host cannot look up the plans of the target.
  void RefuseSelection(const std::string& target) { host.failures[Select(target)] = {}; }

  // The call that looks up the plans of a target.
  static std::string Select(const std::string& target) { return Call("SelectPlans", 1, target); }

  // A sync's parameters as they stand in a call.
  static std::string SyncParam(bool withPending, bool isFull, bool stopSource, bool isEncrypted) {
    return R"({"is_encrypted":)" + scripted_host::Text(isEncrypted) + R"(,"is_full":)" +
           scripted_host::Text(isFull) +
           R"(,"meta":{"description":"By vreldrgroup","is_app_consistent":false,)"
           R"("is_locked":false,"taken_by":""},"stop_source":)" +
           scripted_host::Text(stopSource) + R"(,"with_pending":)" +
           scripted_host::Text(withPending) + "}";
  }

  // A line of the actions, and the one of a look-up that failed.
  static auto Said(const std::string& message) { return ShortErr("replication/replica", message); }
  static auto LookUpFailed() {
    return ShortErr("replication/replica_utils", "Failed to select plans from replica.db");
  }
};

}  // namespace unit
