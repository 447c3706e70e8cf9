#include "base/boundary.h"
#include "plan/checks.h"
#include "target/target_creation.h"
#include "vreldr/operation.h"
#include "vreldrcore/uuid.h"

namespace VrelDR::Operation {

namespace {

constexpr int kReplicaPort = 5566;

std::string CannotProtect(const DRPlan& plan, const std::string& volume) {
  return "cannot make a plan of target " + Quoted(plan.GetProtectedTargetId()) +
         " with its DR copy on volume " + Quoted(volume);
}

// Makes the bytes of the copy, a replica from the beginning, and a pair of it and its source.
Status MakeReplica(const StorageEngine& engine, const Link& link, const TargetPlace& source,
                   const TargetPlace& copy, Watcher& watcher) {
  Status status = engine.CreateTarget(copy, TargetContent(), watcher);
  if (!status.IsOk()) return status;
  status = engine.Quiesce(copy, watcher);
  if (status.IsOk()) status = engine.Demote(copy, watcher);
  if (status.IsOk()) status = link.Attach(source, copy, watcher);
  if (!status.IsOk()) {
    (void)link.Detach(source, copy, watcher);
    (void)engine.RemoveTarget(copy, watcher);
  }
  return status;
}

// Makes the copy and the plan, under the name if it is free.
Status MakeCopy(const HostTarget& source, DRPlan plan, const Target& copy,
                const std::string& volume) {
  Host& host = source.GetHost();
  plan.SetPlanId(VrelDRCore::GenerateUUID());
  plan.SetDRTargetId(copy.GetId());
  plan.SetStatus(kPlanNormal);
  plan.SetDirection(kMainToDR);
  std::unique_ptr<Link> link;
  Status status = host.FindLink(source.GetRow().volume, volume, link);
  if (!status.IsOk()) return status;
  const auto makeBytes = [&](const StorageEngine& engine, const TargetPlace& place) {
    return MakeReplica(engine, *link, source.GetPlace(), place, host.watcher);
  };
  return CreateTarget(host, copy, volume, makeBytes, &plan);
}

// What the copy is called unless that is taken or another name is given.
std::string FirstName(const std::string& targetId) {
  return targetId + "-dr";
}

Status CheckNameFree(const Host& host, const std::string& name) {
  std::optional<TargetRow> taken;
  Status status = host.store->GetTargetOfAnyState(name, taken);
  if (!status.IsOk() || !taken) return status;
  return {kErrExists, "target " + Quoted(name) + " exists already on volume " +
                          Quoted(taken->volume) + "; choose another name for the DR copy"};
}

// Whether the plan can be made of the target, which was opened.
Status CheckCreation(Host& host, const HostTarget& target, const std::string& volume,
                     const std::string& copyId) {
  Status status = Check::Protectable(*host.store, target.GetTarget().GetId());
  const StorageEngine* engine = nullptr;
  if (status.IsOk()) status = host.FindEngine(volume, engine);
  if (!status.IsOk()) return status;
  if (volume == target.GetRow().volume) {
    return {kErrBadArgument,
            "the target is on that volume itself, and one loss would take both; name another one"};
  }
  const std::string name = copyId.empty() ? FirstName(target.GetTarget().GetId()) : copyId;
  if (!IsAllowedId(name)) {
    return {kErrBadArgument, "the DR copy cannot be called " + Quoted(name) +
                                 "; choose a name of 1 to 200 bytes, none of them \"/\" or a "
                                 "control character, that does not begin with \".\""};
  }
  std::unique_ptr<Link> link;
  status = host.FindLink(target.GetRow().volume, volume, link);
  if (status.IsOk()) status = link->Check(target.GetPlace(), host.watcher);
  if (status.IsOk()) status = engine->CheckWritable(host.watcher);
  return status.IsOk() && !copyId.empty() ? CheckNameFree(host, copyId) : status;
}

Status MakeNamedCopy(const HostTarget& source, const DRPlan& plan, const std::string& volume) {
  constexpr int kMostNames = 1000;
  const std::string name = FirstName(plan.GetProtectedTargetId());
  Status status;
  for (int number = 1; number <= kMostNames; ++number) {
    const std::string tried = number == 1 ? name : name + std::to_string(number);
    if (!IsAllowedId(tried)) {
      return {kErrBadArgument, "the DR copy cannot be called " + Quoted(tried) +
                                   ", which is too long; choose its name"};
    }
    status = MakeCopy(source, plan, Target(tried, source.GetTarget().GetType()), volume);
    if (status.code != kErrExists) break;
  }
  return status;
}

Status CreateLocal(const DRPlan& plan, const std::string& volume, const std::string& copyId,
                   bool checkOnly) {
  const std::shared_ptr<Host> host = TheHost();
  HostTarget target(*host);  // its lock lets one creation after the other choose a name
  const std::string& id = plan.GetProtectedTargetId();
  Status status = checkOnly ? target.OpenToRead(id) : target.OpenToWrite(id);
  if (status.IsOk()) status = CheckCreation(*host, target, volume, copyId);
  if (!status.IsOk() || checkOnly) return status;
  if (copyId.empty()) return MakeNamedCopy(target, plan, volume);
  return MakeCopy(target, plan, Target(copyId, target.GetTarget().GetType()), volume);
}

}  // namespace

// Nothing is needed to reach another volume of the same node; what is filled in is what says that.
void PlanCreateBase::GetLocalReplicaConns(const std::string& /*dstVol*/, PlanRemoteConn& srcConn,
                                          PlanRemoteConn& dstConn) {
  Json::Value json(Json::objectValue);
  json["controller_id"] = 0;
  json["cred_id"] = "";
  json["replica_port"] = kReplicaPort;
  json["replica_addr"] = "127.0.0.1";
  (void)srcConn.FromJson(json);
  (void)dstConn.FromJson(json);
}

PlanCreateBase::PlanCreateBase(const DRPlan& plan, const std::string& dstVol,
                               const std::string& drTargetId, const AsyncSchedulePolicy& schedule)
    : plan_(plan), dst_vol_(dstVol), dr_target_id_(drTargetId), schedule_(schedule) {}

PlanLocalCreate::PlanLocalCreate(const DRPlan& plan, const std::string& dstVol,
                                 const std::string& drTargetId, const PlanRemoteConn& srcConn,
                                 const PlanRemoteConn& dstConn, const AsyncSchedulePolicy& schedule)
    : PlanCreateBase(plan, dstVol, drTargetId, schedule), src_conn_(srcConn), dst_conn_(dstConn) {}

bool PlanLocalCreate::Run(bool checkOnly) {
  return RunAndRecord(*this, [&] {
    return InContext(CannotProtect(plan_, dst_vol_),
                     CreateLocal(plan_, dst_vol_, dr_target_id_, checkOnly));
  });
}

PlanCreate::PlanCreate(const DRPlan& plan, const std::string& dstVol, const std::string& drTargetId,
                       const std::vector<PlanRemoteConn>& srcConns,
                       const std::vector<PlanRemoteConn>& dstConns,
                       const AsyncSchedulePolicy& schedule, bool withSync)
    : PlanCreateBase(plan, dstVol, drTargetId, schedule),
      src_conns_(srcConns),
      dst_conns_(dstConns),
      with_sync_(withSync) {}

bool PlanCreate::Run(bool /*checkOnly*/) {
  return RunAndRecord(*this, [&]() -> Status {
    return {kErrUnsupported, CannotProtect(plan_, dst_vol_) + " of node " +
                                 Quoted(plan_.GetDRSite()) +
                                 ": the volumes of this host do not span nodes; name this node, " +
                                 Quoted(plan_.GetMainSite()) + ", and one of its volumes"};
  });
}

}  // namespace VrelDR::Operation
