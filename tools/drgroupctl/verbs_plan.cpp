#include "action/task.h"
#include "text.h"
#include "verb_functions.h"
#include "verb_parameters.h"

// The part of the table of verbs that is about plans.
namespace drgroupctl {

namespace {

Parameter DryRun() {
  return Flag("--dry-run", "only check every target, and show what was found");
}
Parameter Plan() {
  return Argument("PLAN", Value::kPlan, "the plan's identifier");
}
Parameter PlanTarget() {
  return Argument("TARGET", Value::kTarget, "a target that a plan has, either copy");
}
Parameter TaskName() {
  Parameter task = Argument("TASK", Value::kChoice, "the action");
  for (const Task& each : Tasks()) task.choices.push_back(each.name);
  return task;
}

constexpr char kAllOrNothing[] =
    "All targets are checked first, and nothing is done unless all pass. When a target fails, what "
    "was done to those before it is taken back, and the report tells of each target whether it was "
    "done, failed, reverted, failed to revert or not started, and how its plan stands now.";
constexpr char kActions[] =
    "The verbs above are made of these. An action that begins with \"can_\" only checks every "
    "target; "
    "one that begins with \"tmp_\" is for groups that are made for a while.";
constexpr char kActionParams[] =
    "The parameters are the members of one JSON object; one that the action does not take is "
    "refused. "
    "The report has them with what the action has filled in: \"edit_prepare\" fills "
    "\"target_plan_map\", which \"edit\" needs.";
constexpr char kRunAgain[] =
    "After an interruption the same command goes on: targets that were done are passed over while "
    "others are left.";

constexpr char kClaims[] =
    "Whatever removes a copy names it with its volume, its side and its snapshots, and asks. It is "
    "refused, before anything is done, when one of the snapshots is locked or recorded in any "
    "group's catalogue, or when a catalogue cannot be read, unless --force says to lose them.";

Parameter ForceClaims() {
  return Flag("--force", "lose snapshots that are locked or recorded, too");
}

// Which actions are taken back on the targets before the one that failed.
std::string RevertedActions() {
  std::vector<std::string> names;
  for (const Task& each : Tasks()) {
    if (each.is_reverted) names.push_back("\"" + each.name + "\"");
  }
  return "All targets are checked first, and nothing is done unless all pass. When a target fails, "
         "those before it are brought back by " +
         Join(names, ", ") + "; what another action did stays.";
}

}  // namespace

std::vector<Verb> PlanVerbs() {
  return {
      {"snapshot ship",
       "let the next sync send a group snapshot too",
       {"Puts every target snapshot of it on the list of those that wait to be sent. Afterwards "
        "the "
        "next sync, or switchover, of the group brings them to the replicas under the same "
        "identifiers. A failure takes them off the list again."},
       "What waits to be sent.",
       {Gsnap()},
       {Flag("--undo", "take it off the list again")},
       SnapshotShip},

      {"snapshot sync",
       "record what replication brought as a group snapshot",
       {"Takes no snapshot: looks up the last snapshot that has arrived for every target of the "
        "group, which is usually the group of the DR copies, and records them as one group "
        "snapshot, with which target is replicated to which. Refused while nothing newer than the "
        "last recorded one has arrived.",
        "After a failure rows of some targets may stay in the catalogue without a group snapshot; "
        "\"snapshot repair\" removes them."},
       "Adds a group snapshot to the catalogue.",
       {GroupArgument("the group")},
       {Description(), Flag("--lock", "lock it against deletion"),
        Consistency("how consistent the targets were; unspecified when left out")},
       SnapshotSync},

      {"snapshot prune",
       "delete the snapshots that syncs have left behind",
       {"Every sync takes a snapshot of each target and needs only the last of them. Deletes, on "
        "both copies, those before it that no plan holds or is going to send and that no group's "
        "catalogue records. Refused while the catalogue of any group cannot be read. A copy that "
        "is out of reach is passed over.",
        "What was deleted before a failure stays deleted, and the same command goes on."},
       "Snapshots that syncs have taken are lost.",
       {GroupArgument("the group")},
       {Flag("--dry-run", "only show what would be deleted"), Yes()},
       SnapshotPrune},

      {"protect",
       "give every target of a group a plan and a DR copy",
       {"Afterwards every target has a plan and an empty copy on the volume, of the same kind and "
        "called like the target with \"-dr\" behind it; the first sync fills it. With --dr-group "
        "the "
        "copies become a group of their own.",
        "Refused when any target has a plan already, unless --missing says to protect only those "
        "without, as after an interruption. A failure removes what was made."},
       "Adds plans and DR copies to this host, and a group with --dr-group.",
       {GroupArgument("the group")},
       {{"--volume", Value::kVolume, "V", "the volume that takes the DR copies", true},
        {"--dr-group", Value::kNewGroup, "ID", "make a group of the DR copies"},
        Flag("--missing", "protect only the targets that have no plan"),
        {"--node", Value::kText, "NODE", "the node of the DR copies; this one when left out"},
        {"--dst-ip", Value::kText, "ADDRESS", "the address of that node"},
        {"--src-ip", Value::kText, "ADDRESS", "the address of this node as that one reaches it"},
        {"--src-cred", Value::kText, "CREDENTIAL", "what opens that node to this one"},
        {"--dst-cred", Value::kText, "CREDENTIAL", "what opens this node to that one"},
        DryRun()},
       Protect},

      {"sync",
       "send what changed to the replicas of a group",
       {"Afterwards the same new snapshot of each target stands on both sides; group snapshots "
        "that "
        "wait to be sent were sent too. Only what changed since the last common snapshot is sent.",
        "A warning names the sources whose snapshots are copies: those are only as consistent as "
        "the "
        "writers are quiet. All targets are checked first. After a failure, a stop or an "
        "interruption what has "
        "arrived "
        "stays, and the same command goes on with it. SIGINT and SIGTERM stop it within a second."},
       "Adds a snapshot to both copies of each target, and releases the one before it.",
       {GroupArgument("the group")},
       {DryRun()},
       Sync},

      {"stop",
       "stop the sync that runs on a group",
       {"Afterwards no sync runs on its plans. The sync itself ends with exit code 9, and goes on "
        "where it was when it is run again. Fine when none runs."},
       "Nothing but the running sync.",
       {GroupArgument("the group")},
       {},
       Stop},

      {"status",
       "show how the plans of groups stand",
       {"Shows for each target whether it is protected, which copy works and which does not, when "
        "the last snapshot that arrived was taken, what runs, how many snapshots wait to be sent "
        "and what is wrong. A last snapshot that is gone is told, and the newest that is there "
        "shown; an age that is less than 0 is a time ahead of this host's clock. May be run while "
        "an action runs."},
       "Nothing.",
       {{"GROUP", Value::kGroup, "GROUP", "the group; all when left out"}},
       {},
       Status},

      {"switchover",
       "let a group's copies change their parts, without loss",
       {"The source of each target is made unwritable, a last sync goes over, and its replica "
        "works "
        "with exactly those bytes; replication then runs the other way. Nobody should use the "
        "targets meanwhile.",
        kAllOrNothing, kRunAgain,
        "Look at \"status\" first: when all targets were done, it brings them back."},
       "Which copies work, and the direction of replication.",
       {GroupArgument("the group")},
       {DryRun()},
       Switchover},

      {"failover",
       "let the replicas of a group take over",
       {"Each replica works with exactly the bytes of a snapshot that it has: the last one that "
        "arrived, or that of a group snapshot of the group or of its DR copies. When the last one "
        "is gone, the newest that is there is taken, once that is agreed to. The source is made "
        "unwritable and keeps its bytes. What was written since the snapshot is not at the copies "
        "that work; while the sources are well, a switchover loses nothing.",
        "With --force nothing is needed of the sources, which may be gone; what would be lost is "
        "told target by target, and has to be agreed to.",
        kAllOrNothing, kRunAgain},
       "Which copies work. What was written since the snapshots is given up.",
       {GroupArgument("the group")},
       {{"--snapshot", Value::kGsnap, "GSNAP", "the group snapshot to go to"},
        Flag("--force", "do it without the sources"),
        DryRun(),
        Yes()},
       Failover},

      {"reprotect",
       "replicate a group that failed over the other way",
       {"The copies that work become the sources and work throughout, the others their replicas; "
        "what those hold is kept in a snapshot first. The next sync sends what changed.",
        kAllOrNothing, kRunAgain},
       "The direction of replication.",
       {GroupArgument("the group")},
       {DryRun()},
       Reprotect},

      {"edit",
       "move the DR copies of a group to another volume",
       {"Makes a second plan for each target, fills its copy by a first sync, and only then "
        "removes "
        "the old plan with its copy and the snapshots of that. The targets are protected "
        "throughout.",
        "A failure before the old plans are removed removes the new ones. After an interruption "
        "the same command goes on.",
        kClaims},
       "The old DR copies are lost with their snapshots.",
       {GroupArgument("the group")},
       {{"--volume", Value::kVolume, "V", "the volume that takes the new DR copies", true},
        ForceClaims(),
        DryRun(),
        Yes()},
       Edit},

      {"unprotect",
       "remove the plans of a group",
       {"The copies that do not work stay as ordinary targets that hold what arrived last; with "
        "--delete-data they go with their snapshots. Those are the DR copies, but after a "
        "switchover the ones on the main side. The copies that work are never touched. Targets "
        "without a plan are passed over.",
        kClaims,
        "All targets are checked first. What was removed before a failure stays removed, and the "
        "same command goes on with the others; a copy whose removal has begun never comes back, "
        "and the same command, \"target remove\" or the next target that is made finishes it."},
       "The plans; with --delete-data the copies that do not work and their snapshots are lost.",
       {GroupArgument("the group")},
       {Flag("--delete-data", "remove the copies that do not work, with their snapshots"),
        ForceClaims(), DryRun(), Yes()},
       Unprotect},

      {"plan list",
       "list the plans of this host",
       {"Shows for each plan its target and DR copy, whether it failed over, its direction and "
        "which copy works."},
       "Nothing.",
       {},
       {},
       PlanList},

      {"plan show",
       "show a plan and the snapshots of both its copies",
       {"Shows how it stands, its last sync, and of each snapshot whether the plan holds it "
        "against "
        "deletion and whether it waits to be sent."},
       "Nothing.",
       {Plan()},
       {},
       PlanShow},

      {"plan delete",
       "remove one plan",
       {"As \"unprotect\" does for a whole group. It is the way out for a target with several "
        "plans.",
        kClaims},
       "The plan; with --delete-data the copy that does not work is lost with its snapshots.",
       {Plan()},
       {Flag("--delete-data", "remove the copy that does not work, with its snapshots"),
        ForceClaims(), DryRun(), Yes()},
       PlanDelete},

      {"plan promote",
       "let the replica of one target take over",
       {"As a forced failover to the last snapshot that arrived, or to the newest that is there "
        "when that is gone, of one target alone."},
       "Which copy works. What was written since the snapshot is given up.",
       {PlanTarget()},
       {DryRun(), Yes()},
       PlanPromote},

      {"plan drop-shipment",
       "give up the snapshot that a sync has on its way",
       {"What has arrived of it goes, and the next sync takes and sends a new snapshot. The source "
        "keeps the snapshot, which no plan holds then and which does not wait to be sent any more; "
        "\"snapshot prune\" deletes it unless a catalogue records it. For a DR volume that is too "
        "small for it; a sync does so itself once it has found no room twice."},
       "What has arrived of a snapshot that is not whole yet is lost.",
       {Plan()},
       {},
       PlanDropShipment},

      {"plan rollback",
       "drop the last snapshot that arrived for one target",
       {"Afterwards the one before it is the last that arrived."},
       "The snapshot of the replica is lost.",
       {PlanTarget()},
       {Yes()},
       PlanRollback},

      {"action run",
       "run any action of the library on a group",
       {kActions, kActionParams, RevertedActions(), kRunAgain, kClaims},
       "What the action changes.",
       {TaskName(), GroupArgument("the group")},
       {{"--params", Value::kPath, "FILE", "the JSON file with its parameters"},
        {"--params-out", Value::kPath, "FILE", "where to write the parameters afterwards"},
        ForceClaims(),
        DryRun(),
        Yes()},
       ActionRun},
  };
}

}  // namespace drgroupctl
