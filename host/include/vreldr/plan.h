#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"
#include "vreldr/snapshot.h"
#include "vreldr/target.h"

namespace VrelDR {

// How the two sites of a plan belong together. Kept on disk: never change a value.
enum DRSolutionType : int {
  kSolutionGroup = 8,  // replication of a group, to this node or to another one
};

// When a plan sends data of its own accord. Kept on disk: never change a value.
enum DRScheduleMode : int {
  kScheduleAsyncGroup = 3,  // at set times, together with its group
};

// How a plan stands. Kept on disk: never change a value.
enum DRPlanStatus : int {
  kPlanNormal = 3,    // the source works, the replica receives
  kPlanFailover = 4,  // the replica was made to work, and nothing is replicated
};

// What is being done to a plan, or was done last. Kept on disk: never change a value.
enum DRPlanOPStatus : int {
  kOpNone = 0,
  kOpCreate = 1,
  kOpSync = 2,
  kOpStop = 4,
  kOpDelete = 8,
  kOpEdit = 16,
  kOpPromote = 32,
  kOpSwitchover = 64,
  kOpFailover = 128,
  kOpReprotect = 256,
};

// Which side the source of a plan is on. A plan begins with its source on the main side. Kept on
// disk: never change a value.
enum DRPlanDirection : int {
  kMainToDR = 1,
  kDRToMain = 2,
};

// What one site says of a plan.
enum DRSiteStatus : int {
  kSiteUnknown = 0,      // the plan does not exist, or that could not be found out
  kSiteUnreachable = 1,  // a copy of this site is missing or cannot be reached
  kSiteWorking = 2,      // an operation runs
  kSiteNormal = 3,
  kSiteFailover = 4,
  kSiteInterrupted = 5,  // an operation ended before its end; the next one settles it
};

// The replication of one protected target to a copy of it, the DR copy, at another site.
//
// The *main side* has the protected target, the *DR side* the copy, ever after. The side that the
// data comes from has the *source*, which works, the other the *replica*, which nobody writes to
// but replication. A switchover, and a reprotection after a failover, turn the direction and leave
// the sides as they are. The sides of a plan between two volumes of one node are these volumes.
//
// A value: changing one changes no plan.
class VREL_API DRPlan {
 public:
  const std::string& GetPlanId() const { return plan_id_; }
  int GetSolutionType() const { return solution_type_; }
  int GetProtectedTargetType() const { return protected_target_type_; }
  const std::string& GetProtectedTargetId() const { return protected_target_id_; }
  int GetScheduleMode() const { return schedule_mode_; }
  // The nodes of the main and of the DR side; the same one for a plan between two of its volumes.
  const std::string& GetMainSite() const { return main_site_; }
  const std::string& GetDRSite() const { return dr_site_; }
  int GetStatus() const { return status_; }
  const std::string& GetDRTargetId() const { return dr_target_id_; }
  DRPlanDirection GetDirection() const { return direction_; }

  // The targets by their part in the direction that data goes now. After a failover the source is
  // still the one that data came from; it is the replica that works.
  const std::string& GetSourceTargetId() const {
    return direction_ == kDRToMain ? dr_target_id_ : protected_target_id_;
  }
  const std::string& GetReplicaTargetId() const {
    return direction_ == kDRToMain ? protected_target_id_ : dr_target_id_;
  }
  // The target that works: the source, and after a failover the replica.
  const std::string& GetWorkingTargetId() const {
    return status_ == kPlanFailover ? GetReplicaTargetId() : GetSourceTargetId();
  }

  void SetPlanId(const std::string& planId) { plan_id_ = planId; }
  void SetSolutionType(int type) { solution_type_ = type; }
  void SetProtectedTargetType(int type) { protected_target_type_ = type; }
  void SetProtectedTargetId(const std::string& targetId) { protected_target_id_ = targetId; }
  void SetScheduleMode(int mode) { schedule_mode_ = mode; }
  void SetMainSite(const std::string& nodeId) { main_site_ = nodeId; }
  void SetDRSite(const std::string& nodeId) { dr_site_ = nodeId; }
  void SetStatus(int status) { status_ = status; }
  void SetDRTargetId(const std::string& targetId) { dr_target_id_ = targetId; }
  void SetDirection(DRPlanDirection direction) { direction_ = direction; }

 private:
  std::string plan_id_;
  int solution_type_ = 0;
  int protected_target_type_ = 0;
  std::string protected_target_id_;
  int schedule_mode_ = 0;
  std::string main_site_;
  std::string dr_site_;
  int status_ = 0;
  std::string dr_target_id_;
  DRPlanDirection direction_ = kMainToDR;
};

// One replication connection of a plan: where the other site is reached, and with what.
class VREL_API PlanRemoteConn {
 public:
  // Takes {"controller_id": number, "cred_id": text, "replica_port": number, "replica_addr": text}.
  // False, and nothing is changed, when a member is missing or of another kind, or when the port is
  // none.
  bool FromJson(const Json::Value& json);
  Json::Value ToJson() const;

  int GetControllerId() const { return controller_id_; }
  const std::string& GetCredId() const { return cred_id_; }
  int GetReplicaPort() const { return replica_port_; }
  const std::string& GetReplicaAddr() const { return replica_addr_; }

 private:
  int controller_id_ = 0;
  std::string cred_id_;
  int replica_port_ = 0;
  std::string replica_addr_;
};

// When a plan sends data of its own accord. Enabled without a time it sends never.
class VREL_API AsyncSchedulePolicy {
 public:
  void SetDisabled() { is_enabled_ = false; }
  bool IsEnabled() const { return is_enabled_; }

 private:
  bool is_enabled_ = true;
};

// What one sync does.
struct VREL_API DataSyncParam {
  bool with_pending = false;  // send the pending snapshots too
  bool is_full = false;       // send everything again, not only what changed
  // Make the source unwritable before its last snapshot is taken. Without it whoever calls has made
  // sure that nobody writes. Only a switchover looks at it.
  bool stop_source = false;
  bool is_encrypted = false;  // on its way to another node; between volumes of one there is no way
  Operation::SnapshotMeta meta;  // of the snapshot that is taken to be sent

  // The members by their names, "meta" as an object of its own.
  Json::Value ToJson() const;
  // Takes over the members that are present and of the right kind. False when `json` is neither an
  // object nor null.
  bool FromJson(const Json::Value& json);
};

namespace PlanAPI {

// Puts the plan into `plan`. 0 when it was found; otherwise the code of ErrCode that tells why not,
// and `plan` stays as it was.
VREL_API int GetPlan(const std::string& planId, DRPlan& plan);
// The plan, or an empty one when it cannot be had.
VREL_API DRPlan GetPlan(const std::string& planId);
// Appends every plan of this node, oldest first. 0, or a code of ErrCode.
VREL_API int ListPlans(std::vector<DRPlan>& plans);

}  // namespace PlanAPI

// The plans of this node as PlanAPI and Utils::SelectPlans tell them, with a message that says why
// when they cannot be told. The library needs nothing of this; it is there for a tool that tells
// people.
class VREL_API PlanReader : public DRErrRecorder {
 public:
  // Appends every plan of this node, oldest first.
  bool List(std::vector<DRPlan>& plans) const;
  // Appends the plans that have the target on one of their sides, oldest first.
  bool Select(const std::string& targetId, std::vector<DRPlan>& plans) const;
  // Puts the plan into `plan`, which stays as it was on a failure; kErrPlanMissing when there is
  // no such plan.
  bool Get(const std::string& planId, DRPlan& plan) const;
};

namespace Utils {

// Appends the plans that have the target on one of their sides, oldest first. On this host a target
// is found by its identifier alone, whatever `type` is. False when that could not be found out.
VREL_API bool SelectPlans(DRProtectedTargetType type, const std::string& targetId,
                          std::vector<DRPlan>& plans);

// How the plan stands on this node, at this moment.
VREL_API DRSiteStatus GetPlanLocalSiteStatus(const DRPlan& plan);

// The name of the action that does it ("sync", "switchover"); empty for kOpNone and unknown ones.
VREL_API std::string ToString(DRPlanOPStatus status);

}  // namespace Utils

// The name under which a plan holds snapshots by retention locks.
VREL_API std::string GetRetentionLocker(const std::string& planId);

}  // namespace VrelDR
