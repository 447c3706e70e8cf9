#include <vreldr/operation.h>
#include <vreldr/report.h>
#include <vreldrgroup/replication/action_words.h>

#include <memory>
#include <optional>
#include <utility>

#include "action/abreast.h"
#include "action/group_action.h"
#include "action/group_cut.h"
#include "action/gsnap_making.h"
#include "action/gsnap_recording.h"
#include "action/gsnap_sides.h"
#include "action/plans.h"
#include "action/waiting.h"
#include "groups/gsnap_cut.h"
#include "groups/kill_point.h"
#include "host/copy_warning.h"
#include "host/host.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

constexpr char kDrGroup[] = "--dr-group";

// What the last sync of each target has sent, and what is to be told of the one before.
Json::Value SyncRows(const std::vector<std::string>& targets, const Finished& finished) {
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
    const auto note = finished.notes.find(target);
    row["note"] = note == finished.notes.end() ? journal.GetMessage() : note->second;
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

// The making and recording of a group snapshot of what a sync sends, on both sides. The lock of the
// group that is synced is held until the cut is in hand, and free from then on.
class BothCatalogues {
 public:
  BothCatalogues(const std::string& groupId, GsnapSides sides)
      : group_id_(groupId), sides_(std::move(sides)) {}

  // Records what an interrupted sync has left to be recorded. Empty when there was nothing.
  std::string RecordLeft(Warnings& warnings) const {
    const auto lock = LockOther(sides_.replica.id, group_id_);
    return drgroupctl::RecordLeft(sides_, warnings);
  }
  // Records the group snapshots that were shipped beside. Their identifiers there.
  std::vector<std::string> RecordShipped() const {
    const auto lock = LockOther(sides_.replica.id, group_id_);
    return drgroupctl::RecordShipped(sides_);
  }
  // Nobody is to be held for what could not be recorded on both sides.
  void Begin(const std::string& failed) {
    {
      const auto lock = LockOther(sides_.replica.id, group_id_);
      RequireRoomForGsnap(sides_.replica, failed);
    }
    source_lock_ = LockOther(sides_.source.id, group_id_);
    making_.emplace(sides_.source);
  }
  // Makes the source's one of the cut that was prepared since.
  void Make(const VrelDR::CutInfo& cut, const Arguments& args, Warnings& warnings) {
    is_locked_ = args.Has("--lock");
    description_ = args.Text("--description");
    made_ = making_->Make({description_, is_locked_, ConsistencyOf(CutOf(cut))}, warnings).gsnap_id;
    source_lock_.reset();
    KillPoint(kSyncGsnapMade);
  }
  // Records it on the other side, where it has arrived.
  void Record(const VrelDR::CutInfo& cut) {
    KillPoint(kSyncAllArrived);
    const auto lock = LockOther(sides_.replica.id, {});
    const ArrivedGsnap arrived = FindArrivedGsnap(sides_.replica);
    if (arrived.cut.info.id != cut.id) {
      throw Failure(ExitCode::kBusy, "group " + Quote(sides_.replica.id) +
                                         ": no group snapshot was recorded: another cut has "
                                         "arrived since");
    }
    recorded_ = RecordArrived(sides_.replica, arrived, description_, is_locked_).gsnap_id;
    KillPoint(kSyncGsnapRecorded);
  }

  const std::string& GetMade() const { return made_; }
  const std::string& GetRecorded() const { return recorded_; }

 private:
  std::string group_id_;
  GsnapSides sides_;
  std::unique_ptr<GroupLock> source_lock_;
  std::optional<GsnapMaking> making_;
  std::string description_;
  bool is_locked_ = false;
  std::string made_;
  std::string recorded_;
};

// From now on the cut's snapshots are what a sync goes on with, whatever happens.
void PutInHand(const Prepared& prepared, VrelDR::Cut& cut, bool isGsnap) {
  std::vector<std::string> plans;
  for (const std::string& each : prepared.targets) {
    plans.push_back(RequireOnePlan(each).GetPlanId());
  }
  const VrelDR::Operation::SnapshotMeta meta(VrelDRGroup::ActionPolicy::kTakenByActions, false,
                                             false, "");
  if (!cut.PutInHand(plans, meta, isGsnap)) {
    throw Failure(FromHostError(cut.GetErrCode()),
                  prepared.title + " failed, nothing of the new cut was sent: " + HostMessage(cut));
  }
}

void CheckOptions(const Arguments& args) {
  for (const char* each : {"--description", "--lock"}) {
    if (args.Has(kDrGroup) || !args.Has(each)) continue;
    throw Failure(ExitCode::kUsage,
                  std::string(each) + " is for a group snapshot: add " + kDrGroup + " to make one");
  }
}

Report SyncReport(const Prepared& prepared, const VrelDR::CutInfo& cut, const Finished& finished,
                  const std::optional<BothCatalogues>& both, const std::string& left,
                  const std::vector<std::string>& shipped) {
  Report report;
  if (finished.is_any) {
    report.AddText("Finished the sync of group " + Quote(prepared.group) +
                   " that was interrupted, first.");
  }
  report.AddText("Synced group " + Quote(prepared.group) +
                 (both ? ", as group snapshot " + Quote(both->GetMade()) + " and " +
                             Quote(both->GetRecorded()) + "."
                       : "."));
  report.AddField({"group_id", "Group"}, prepared.group);
  report.AddField({"task", "Task"}, prepared.name);
  report.AddField({"finished_cut_id", "Finished cut", Shown::kIfAny}, finished.cut_id);
  report.AddField({"finished_dr_gsnap_id", "Recorded of it", Shown::kIfAny}, left);
  report.AddField({"gsnap_id", "Snapshot", Shown::kIfAny}, both ? both->GetMade() : "");
  report.AddField({"dr_gsnap_id", "Of the replicas", Shown::kIfAny},
                  both ? both->GetRecorded() : "");
  if (both) {
    Json::Value rows(Json::arrayValue);
    for (const std::string& each : shipped) {
      rows.append(Json::objectValue);
      rows[rows.size() - 1]["gsnap_id"] = each;
    }
    report.AddTable({"shipped_gsnaps", "Shipped"}, {{"gsnap_id", "RECORDED AS SHIPPED"}}, rows);
  }
  report.AddTable({"targets", "Targets"},
                  {{"target_id", "TARGET"},
                   {"result", "RESULT"},
                   {"snap_id", "SNAPSHOT"},
                   {"size_bytes", "LOOKED AT", Shown::kBytes},
                   {"sent_bytes", "SENT", Shown::kBytes},
                   {"note", "NOTE", Shown::kIfAny}},
                  SyncRows(prepared.targets, finished));
  AddCut(CutOf(cut), report);
  return report;
}

Report RunSync(const Arguments& args, Warnings& warnings) {
  CheckOptions(args);
  const std::string groupId = args.Text("GROUP");
  ActionLock lock(groupId, args);
  const Group group = LoadGroup(groupId);
  const Prepared prepared = PrepareOnGroup("sync", group);
  const Abreast abreast = SendAbreast(prepared.targets, args);
  std::optional<BothCatalogues> both;
  if (args.Has(kDrGroup)) both.emplace(groupId, FindSides(group, args.Text(kDrGroup)));
  if (const auto report = CheckFirst(prepared, args)) return *report;
  // The other group stays what it is until the cut is recorded there.
  std::optional<SendLock> other;
  if (both) other.emplace(args.Text(kDrGroup), GroupDirectory(args.Text(kDrGroup)));
  const std::vector<VrelDR::Target> sources = SourcesOf(group);
  WarnOfMounts(warnings, sources);
  SettlePlans(group);
  lock.ReleaseGroup();
  const Finished finished = FinishWaiting(group, args, abreast);
  auto groupLock = LockOther(groupId, {});
  if (!finished.lacking.empty()) {
    warnings.Print(
        "the cut of the sync that was interrupted is not whole: its snapshot has not "
        "come to " +
        Join(finished.lacking, ", ") + ", as it was given up or is gone");
  }
  const std::string left = both ? both->RecordLeft(warnings) : std::string();
  const std::vector<std::string> shipped =
      both ? both->RecordShipped() : std::vector<std::string>();

  const std::string failed = finished.is_any
                                 ? "what an interrupted sync had left was sent, and nothing new"
                                 : "nothing was sent";
  if (both) both->Begin(failed);
  VrelDR::Cut cut;
  PrepareCut(group, sources, failed, cut, warnings);
  RequireConsistency(group, CutOf(cut.GetInfo()), failed, args);
  if (both) both->Make(cut.GetInfo(), args, warnings);
  try {
    PutInHand(prepared, cut, both.has_value());
    groupLock.reset();
    Run(prepared, args, abreast);
    if (both) both->Record(cut.GetInfo());
  } catch (Failure& failure) {
    if (both) {
      failure.message += "; group snapshot " + Quote(both->GetMade()) +
                         " stays, and \"drgroupctl sync " + groupId + " " + kDrGroup + " " +
                         args.Text(kDrGroup) + "\" goes on with it";
      failure.details["gsnap_id"] = both->GetMade();
    }
    throw;
  }
  WarnOfSkew(group, sources, cut.GetInfo(), warnings);
  return SyncReport(prepared, cut.GetInfo(), finished, both, left, shipped);
}

constexpr char kWhatIsSent[] =
    "Afterwards the same new snapshot of each target stands on both sides, all of them made in one "
    "cut, as by \"snapshot create\"; group snapshots that wait to be sent were sent too. Only what "
    "changed since the last common snapshot is sent.";
constexpr char kWhatIsChecked[] =
    "A warning tells when the cut is not of one instant. All targets are checked first. After a "
    "failure, a stop or an interruption what has arrived stays, and the same command goes on with "
    "it. SIGINT and SIGTERM stop it within a second.";
constexpr char kInterrupted[] =
    "What an interrupted sync has left is sent first, so that the replicas have all of its cut "
    "before there is another one.";
constexpr char kBothSides[] =
    "With --dr-group the cut is a group snapshot on both sides: of the group whose copies work, "
    "and, once it has arrived, of the other one, which has to be the group of exactly the other "
    "copies. When sending fails the one that was made stays; the same command sends and records "
    "it, and then makes another one. \"snapshot prune\" deletes them when they are not needed. "
    "Group snapshots that were shipped with \"snapshot ship\" are recorded there, too.";
constexpr char kAtATime[] =
    "Several targets are sent at a time, but of those that come from the same volume and go to the "
    "same one only one, unless --same-volumes is given with --jobs. When one fails, those that are "
    "being sent go on to their end, and no other is begun.";

}  // namespace

Verb Sync() {
  return {
      "sync",
      "send what changed to the replicas of a group",
      {kWhatIsSent, kWhatIsChecked, kInterrupted, kBothSides, kAtATime},
      "Adds a snapshot to both copies of each target, and releases the one before it; with "
      "--dr-group "
      "a group snapshot to both catalogues.",
      {GroupArgument("the group")},
      {{kJobs, Value::kText, "N", "how many targets are sent at a time, 1 to 64; 4 unless given"},
       Flag(kSameVolumes, "of the same two volumes, too"),
       {kDrGroup, Value::kGroup, "OTHER",
        "make a group snapshot of it, here and in the group of the other copies"},
       Description(),
       Flag("--lock", "lock the group snapshots against deletion"),
       RequireOption("send nothing unless it is crash consistent, or application consistent"),
       DryRun()},
      RunSync,
      "sync"};
}

}  // namespace drgroupctl
