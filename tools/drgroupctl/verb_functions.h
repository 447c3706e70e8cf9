#pragma once

#include "verb.h"

// What the verbs do; each is in the file of its name. Messages on standard error that are no
// failure are printed by the verb itself, everything else is in its report.
namespace drgroupctl {

Report HostInit(const Arguments& args);
Report VolumeInit(const Arguments& args);
Report VolumeList(const Arguments& args);
Report TargetCreate(const Arguments& args);
Report TargetImport(const Arguments& args);
Report TargetList(const Arguments& args);
Report TargetRemove(const Arguments& args);
Report TargetPrune(const Arguments& args);
Report GroupCreate(const Arguments& args);
Report GroupList(const Arguments& args);
Report GroupShow(const Arguments& args);
Report GroupRename(const Arguments& args);
Report GroupRelink(const Arguments& args);
Report GroupUpgrade(const Arguments& args);
Report GroupDelete(const Arguments& args);
Report SnapshotCreate(const Arguments& args);
Report SnapshotList(const Arguments& args);
Report SnapshotShow(const Arguments& args);
Report SnapshotEdit(const Arguments& args);
Report SnapshotRestore(const Arguments& args);
Report SnapshotClone(const Arguments& args);
Report SnapshotDelete(const Arguments& args);
Report SnapshotRepair(const Arguments& args);
Report SnapshotPrune(const Arguments& args);
Report SnapshotShip(const Arguments& args);
Report SnapshotSync(const Arguments& args);
Report Protect(const Arguments& args);
Report Sync(const Arguments& args);
Report Stop(const Arguments& args);
Report Status(const Arguments& args);
Report Switchover(const Arguments& args);
Report Failover(const Arguments& args);
Report Reprotect(const Arguments& args);
Report Edit(const Arguments& args);
Report Unprotect(const Arguments& args);
Report PlanList(const Arguments& args);
Report PlanShow(const Arguments& args);
Report PlanDelete(const Arguments& args);
Report PlanPromote(const Arguments& args);
Report PlanRollback(const Arguments& args);
Report PlanDropShipment(const Arguments& args);
Report ActionRun(const Arguments& args);

}  // namespace drgroupctl
