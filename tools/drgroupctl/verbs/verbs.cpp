#include "verbs/verbs.h"

namespace drgroupctl {

const std::vector<Verb>& Verbs() {
  // clang-format off
  static const std::vector<Verb> verbs = {
      HostInit(),
      VolumeInit(),
      VolumeList(),
      TargetCreate(),
      TargetImport(),
      TargetList(),
      TargetRemove(),
      TargetPrune(),
      TargetSnapList(),
      TargetSnapRemove(),
      GroupCreate(),
      GroupList(),
      GroupShow(),
      GroupAdd(),
      GroupRemove(),
      GroupQuiesce(),
      GroupRetention(),
      GroupHook(),
      GroupRename(),
      GroupRelink(),
      GroupUpgrade(),
      GroupDelete(),
      SnapshotCreate(),
      SnapshotList(),
      SnapshotShow(),
      SnapshotEdit(),
      SnapshotRestore(),
      SnapshotDiff(),
      SnapshotClone(),
      SnapshotDelete(),
      SnapshotRepair(),
      SnapshotShip(),
      SnapshotSync(),
      SnapshotPrune(),
      ScheduleSet(),
      ScheduleShow(),
      ScheduleRemove(),
      ScheduleRun(),
      Protect(),
      Sync(),
      Stop(),
      Status(),
      Metrics(),
      ShowHistory(),
      Switchover(),
      Failover(),
      Reprotect(),
      Edit(),
      Unprotect(),
      PlanList(),
      PlanShow(),
      PlanDelete(),
      PlanPromote(),
      PlanDropArrived(),
      PlanDropShipment(),
      ActionRun(),
  };
  // clang-format on
  return verbs;
}

}  // namespace drgroupctl
