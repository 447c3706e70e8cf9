#pragma once

#include "command/verb.h"

// The verbs; each stands in the file of its name with its words, its parameters and what it does.
// Messages on standard error that are no failure are printed by the verb itself, everything else is
// in its report.
namespace drgroupctl {

Verb HostInit();
Verb VolumeInit();
Verb VolumeList();
Verb TargetCreate();
Verb TargetImport();
Verb TargetList();
Verb TargetRemove();
Verb TargetPrune();
Verb TargetSnapList();
Verb TargetSnapRemove();
Verb GroupCreate();
Verb GroupList();
Verb GroupShow();
Verb GroupAdd();
Verb GroupRemove();
Verb GroupQuiesce();
Verb GroupRetention();
Verb GroupHook();
Verb GroupRename();
Verb GroupRelink();
Verb GroupUpgrade();
Verb GroupDelete();
Verb SnapshotCreate();
Verb SnapshotList();
Verb SnapshotShow();
Verb SnapshotDiff();
Verb SnapshotGet();
Verb SnapshotEdit();
Verb SnapshotRestore();
Verb SnapshotClone();
Verb SnapshotDelete();
Verb SnapshotRepair();
Verb SnapshotShip();
Verb SnapshotSync();
Verb SnapshotPrune();
Verb ScheduleSet();
Verb ScheduleShow();
Verb ScheduleRemove();
Verb ScheduleRun();
Verb Protect();
Verb Sync();
Verb Stop();
Verb Status();
Verb Metrics();
Verb ShowHistory();
Verb Switchover();
Verb Failover();
Verb Reprotect();
Verb Edit();
Verb Unprotect();
Verb PlanList();
Verb PlanShow();
Verb PlanDelete();
Verb PlanPromote();
Verb PlanDropArrived();
Verb PlanDropShipment();
Verb ActionRun();

}  // namespace drgroupctl
