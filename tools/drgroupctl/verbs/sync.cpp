#include <vreldr/operation.h>
#include <vreldr/report.h>

#include "action/abreast.h"
#include "action/group_action.h"
#include "action/group_cut.h"
#include "action/plans.h"
#include "groups/gsnap_cut.h"
#include "host/copy_warning.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// What the last sync of each target has sent.
Json::Value SyncRows(const std::vector<std::string>& targets) {
  Json::Value rows(Json::arrayValue);
  for (const std::string& target : targets) {
    VrelDR::SyncReport report;
    VrelDR::PlanSyncReporter(RequireOnePlan(target).GetPlanId()).ReadReport(report);
    Json::Value row(Json::objectValue);
    row["target_id"] = target;
    row["result"] = "done";
    row["snap_id"] = report.GetSnapId();
    row["size_bytes"] = Json::UInt64(report.GetSyncRecord().total_size_byte);
    VrelDR::SiteOPJournal journal;
    VrelDR::SiteOPJournalReporter(RequireOnePlan(target).GetPlanId()).ReadReport(journal);
    row["note"] = journal.GetMessage();
    row["sent_bytes"] = Json::UInt64(report.GetSyncRecord().sent_size_byte);
    rows.append(row);
  }
  return rows;
}

// What earlier actions left half done is settled before the cut holds the sources.
void SettlePlans(const Group& group) {
  for (const VrelDR::Target& each : group.targets) {
    VrelDR::Operation::PlanSettle settle(RequireOnePlan(each.GetId()).GetPlanId());
    if (!settle.Run(false)) {
      throw Failure(FromHostError(settle.GetErrCode()),
                    "sync of group " + Quote(group.id) +
                        " is refused, nothing was sent: " + HostMessage(settle));
    }
  }
}

Report RunSync(const Arguments& args, Warnings& warnings) {
  const std::string groupId = args.Text("GROUP");
  ActionLock lock(groupId, args);
  const Group group = LoadGroup(groupId);
  const Prepared prepared = PrepareOnGroup("sync", group);
  const Abreast abreast = SendAbreast(prepared.targets, args);
  if (const auto report = CheckFirst(prepared, args)) return *report;
  const std::vector<VrelDR::Target> sources = SourcesOf(group);
  WarnOfMounts(warnings, sources);
  SettlePlans(group);
  VrelDR::Cut cut;  // the targets' syncs take up its snapshots, one after the other
  PrepareCut(group, sources, "nothing was sent", cut, warnings);
  lock.ReleaseGroup();
  Run(prepared, args, abreast);
  WarnOfSkew(group, sources, cut.GetInfo(), warnings);

  Report report;
  report.AddText("Synced group " + Quote(groupId) + ".");
  report.AddField({"group_id", "Group"}, groupId);
  report.AddField({"task", "Task"}, prepared.name);
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"result", "RESULT"},
                   {"snap_id", "SNAPSHOT"},
                   {"size_bytes", "LOOKED AT", Shown::kBytes},
                   {"sent_bytes", "SENT", Shown::kBytes},
                   {"note", "NOTE", Shown::kIfAny}},
                  SyncRows(prepared.targets));
  AddCut(CutOf(cut.GetInfo()), report);
  return report;
}

}  // namespace

Verb Sync() {
  return {
      "sync",
      "send what changed to the replicas of a group",
      {"Afterwards the same new snapshot of each target stands on both sides, all of them made in "
       "one cut, as by \"snapshot create\"; group snapshots that wait to be sent were sent too. "
       "Only "
       "what changed since the last common snapshot is sent.",
       "A warning tells when the cut is not of one instant. All targets are checked first. After a "
       "failure, a stop or an "
       "interruption what has arrived stays, and the same command goes on with it. SIGINT and "
       "SIGTERM stop it within a second.",
       "Several targets are sent at a time, but of those that come from the same volume and go to "
       "the same one only one, unless --same-volumes is given with --jobs. When one fails, those "
       "that are being sent go on to their end, and no other is begun."},
      "Adds a snapshot to both copies of each target, and releases the one before it.",
      {GroupArgument("the group")},
      {{kJobs, Value::kText, "N", "how many targets are sent at a time, 1 to 64; 4 unless given"},
       Flag(kSameVolumes, "of the same two volumes, too"),
       DryRun()},
      RunSync};
}

}  // namespace drgroupctl
