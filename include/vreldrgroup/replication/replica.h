#pragma once

#include <json/value.h>
#include <vreldr/operation.h>
#include <vreldr/plan.h>

#include <memory>
#include <set>
#include <string>

#include "vreldrgroup/export.h"
#include "vreldrgroup/replication/action_words.h"

namespace VrelDRGroup::ActionPolicy {

// The actions on the plans of a group, one tag for each.
struct CreatePartial {};
struct Create {};
struct Sync {};
struct Del {};
struct Switchover {};
struct Failover {};
struct Reprotect {};
struct EditPrepare {};
struct EditCleanup {};
struct ReprotectChecker {};
struct TmpCreate {};
struct TmpSync {};
struct TmpSwitchover {};
struct TmpDel {};
// The actions without parameters.
template <int N>
struct IntToType {};
using Stop = IntToType<0>;
using SyncChecker = IntToType<1>;
using DelChecker = IntToType<2>;
using SwitchoverChecker = IntToType<3>;
using FailoverChecker = IntToType<4>;
using TmpSyncStop = IntToType<5>;

// What an action keeps between its calls, in the order in which ActionImpl has it.
struct NoState {};

struct SyncState {
  VrelDR::DataSyncParam sync_param;
};

struct SwitchoverState {
  VrelDR::DataSyncParam sync_param;
  Json::Value target_map;  // has a member for each target that the caller makes quiet itself
};

struct DeleteState {
  bool is_site_del = false;
  bool is_data_deleted = false;
  bool is_drsite_deleted = false;
  std::string last_target;  // the greatest of the action's targets
};

struct EditCleanupState {
  bool is_site_del = false;
  Json::Value target_plan_map;  // target identifier to the identifier of its plan
};

struct ReprotectCheckerState {
  bool is_mainsite = false;
};

struct CreationState {
  bool is_local = false;  // the DR site is this node
  VrelDR::DRPlan plan;    // what every plan begins as
  std::string dst_vol;
  VrelDR::PlanRemoteConn src_conn;
  VrelDR::PlanRemoteConn dst_conn;
  VrelDR::AsyncSchedulePolicy schedule;
};

struct EditPrepareState {
  CreationState creation;
  Json::Value target_plan_map;  // target identifier to the identifier of the plan it had before
};

struct FailoverState {
  Json::Value target_snap_map;  // target identifier to the identifier of its snapshot
  bool is_forced = false;
};

struct ReprotectState {
  bool is_mainsite = false;
  bool reprotect_flag = false;
};

// Which state an action has.
template <class Tag>
struct StateOf {
  using Type = NoState;
};
// clang-format off
template <> struct StateOf<CreatePartial>    { using Type = CreationState; };
template <> struct StateOf<Create>           { using Type = CreationState; };
template <> struct StateOf<Sync>             { using Type = SyncState; };
template <> struct StateOf<Del>              { using Type = DeleteState; };
template <> struct StateOf<Switchover>       { using Type = SwitchoverState; };
template <> struct StateOf<Failover>         { using Type = FailoverState; };
template <> struct StateOf<Reprotect>        { using Type = ReprotectState; };
template <> struct StateOf<EditPrepare>      { using Type = EditPrepareState; };
template <> struct StateOf<EditCleanup>      { using Type = EditCleanupState; };
template <> struct StateOf<ReprotectChecker> { using Type = ReprotectCheckerState; };
template <> struct StateOf<TmpCreate>        { using Type = CreationState; };
template <> struct StateOf<TmpSync>          { using Type = SyncState; };
template <> struct StateOf<TmpSwitchover>    { using Type = SyncState; };
template <> struct StateOf<TmpDel>           { using Type = DeleteState; };
// clang-format on

// One action on a group, as one operation for each of its targets. An object serves one run of the
// action: PreAct once, GenOperation for each target, and Revert for what has run when one fails.
// One object belongs to one thread.
//
// The parameters of each action, all members of one JSON object, by the names of Param:
//
//   create, create_partial, tmp_create, edit_prepare
//     "dst_vol"      the volume that takes the DR copies
//     "dr_node_id"   the node of the DR site; this node's own for a plan between two volumes
//     "dst_ip", "src_cred_id", "src_ip", "dst_cred_id"
//                    the addresses and credentials of a plan to another node
//     "target_plan_map"
//                    edit_prepare alone, which fills it: target to the plan that it has
//   sync             "is_encrypted"
//   switchover       "is_encrypted"; "target_map": has the targets that are quiet already
//   failover         "gsnap_id": the group snapshot; "is_forced"
//   reprotect, can_reprotect
//                    "is_mainsite": whether the main site asks
//   delete           "is_site_del", "is_data_deleted", "is_drsite_deleted"
//   edit             "is_site_del"; "target_plan_map": as edit_prepare has filled it
//
// A member that is missing or of the wrong kind reads as empty or false; parameters that are no
// object read as an empty one.
template <class Tag>
class VRELDRGROUP_API ActionImpl {
 public:
  // The action's name, such as "sync".
  std::string GetTaskName();

  // Takes in the parameters and, for some actions, the targets; edit_prepare writes what the later
  // "edit" needs into `params`. 0, or -1 when a group snapshot or a plan that is needed cannot be
  // found.
  int PreAct(const std::set<std::string>& targets, Json::Value& params);

  // The operation for one target, which the caller runs and owns. An empty one with `err` as it was
  // means that there is nothing to run; an empty one with `err` -1 is a failure. The caller sets
  // `err` to 0 before.
  std::unique_ptr<VrelDR::DROperation> GenOperation(const std::string& target, int& err);

  // Undoes the action on the targets whose operation has run, one after the other, whatever becomes
  // of each. 0, or -1 when any of them could not be undone. `targets` is empty afterwards; after
  // Switchover and Reprotect it holds those that were undone.
  int Revert(std::set<std::string>& targets);

 private:
  typename StateOf<Tag>::Type state_;
};

extern template class VRELDRGROUP_API ActionImpl<CreatePartial>;
extern template class VRELDRGROUP_API ActionImpl<Create>;
extern template class VRELDRGROUP_API ActionImpl<Sync>;
extern template class VRELDRGROUP_API ActionImpl<Del>;
extern template class VRELDRGROUP_API ActionImpl<Stop>;
extern template class VRELDRGROUP_API ActionImpl<Switchover>;
extern template class VRELDRGROUP_API ActionImpl<Failover>;
extern template class VRELDRGROUP_API ActionImpl<Reprotect>;
extern template class VRELDRGROUP_API ActionImpl<EditPrepare>;
extern template class VRELDRGROUP_API ActionImpl<EditCleanup>;
extern template class VRELDRGROUP_API ActionImpl<SyncChecker>;
extern template class VRELDRGROUP_API ActionImpl<DelChecker>;
extern template class VRELDRGROUP_API ActionImpl<SwitchoverChecker>;
extern template class VRELDRGROUP_API ActionImpl<FailoverChecker>;
extern template class VRELDRGROUP_API ActionImpl<ReprotectChecker>;
extern template class VRELDRGROUP_API ActionImpl<TmpCreate>;
extern template class VRELDRGROUP_API ActionImpl<TmpSync>;
extern template class VRELDRGROUP_API ActionImpl<TmpSyncStop>;
extern template class VRELDRGROUP_API ActionImpl<TmpSwitchover>;
extern template class VRELDRGROUP_API ActionImpl<TmpDel>;

}  // namespace VrelDRGroup::ActionPolicy
