#include "verb.h"

#include "host.h"
#include "verb_functions.h"
#include "verb_parameters.h"

// The table of verbs. Parsing, help, the manual page and the shell's completion are made from it.
namespace drgroupctl {

namespace {

Parameter Volume() {
  return {"--volume", Value::kVolume, "V", "the volume that the target is made on", true};
}
Parameter Type() {
  return {"--type", Value::kChoice, "TYPE", "what kind of target it is", true, false, TypeNames()};
}

}  // namespace

const std::vector<Parameter>& CommonOptions() {
  static const std::vector<Parameter> options = {
      Flag("--json", "print one JSON document instead of text for people"),
      Flag("--help", "tell what the verb does and takes, and end"),
  };
  return options;
}

namespace {

// The verbs for the host and its volumes.
std::vector<Verb> HostVerbs() {
  return {
      {"host init",
       "make this host: its identity and its records",
       {"The first target that is created makes them too, unless there are traces of a host: an "
        "identity, records or locks in the state directory, something of a host on a volume, or a "
        "volume that cannot be asked, as one that is not mounted. Then something is missing that "
        "should be there. First put it back from a backup, correct \"state_dir\" in the "
        "configuration or mount the volume; make a host anew only where the old one is gone.",
        "Shows the traces first. What is in order is kept. Without the old records the host knows "
        "none of its targets, snapshots and plans any more; their bytes stay on the volumes."},
       "Makes what is missing of the state directory, the identity and the records. Damaged files "
       "are moved aside, never deleted.",
       {},
       {Yes()},
       HostInit},

      {"volume init",
       "give a volume an identity",
       {"A volume is known by its identity. An empty one gets it with its first target. This verb "
        "is for a volume that "
        "holds something else already, and with --adopt for one that the host does not take for "
        "its own: whose data has moved to another file system, that has lost its identity, or that "
        "another node has used.",
        "With --adopt it shows first which of the recorded targets and snapshots are there. Make "
        "sure that the right volume is mounted."},
       "The volume's identity, on it and in the host's records; no target.",
       {Argument("NAME", Value::kVolume, "the volume, as the configuration names it")},
       {Flag("--adopt", "take what is there for the volume, whatever identity it has"), Yes()},
       VolumeInit},
  };
}

// The verbs for volumes, targets, groups and their snapshots.
std::vector<Verb> CatalogueVerbs() {
  return {
      {"volume list",
       "list the volumes of this host",
       {"For each volume: its engine and how it makes snapshots; whether a snapshot is of one "
        "instant although somebody writes (atomic); whether the system refuses to change a "
        "snapshot's bytes (immutable); its size, and why it cannot be used if it cannot."},
       "Nothing.",
       {},
       {},
       VolumeList},

      {"target create",
       "make an empty target",
       {"A lun is a disk image of the given size that takes no room until it is written, a share "
        "an "
        "empty folder, a guest a folder for its definition and disks. The report says where its "
        "bytes are."},
       "Adds a target to this host. A failure leaves nothing of it.",
       {Argument("ID", Value::kNewTarget, "the new target's identifier, unique on this host")},
       {Volume(),
        Type(),
        {"--size", Value::kSize, "SIZE",
         "a lun's size in bytes, or with K, M, G or T behind it in powers of 1024"}},
       TargetCreate},

      {"target import",
       "make a target from files and folders",
       {"A lun takes one image file, a share any files and folders (of one folder, its content), a "
        "guest its definition and disks. The sources are copied and only read."},
       "Adds a target to this host. A failure leaves nothing of it.",
       {Argument("ID", Value::kNewTarget, "the new target's identifier, unique on this host"),
        {"PATH", Value::kPath, "PATH", "what the target's content is copied from", true, true}},
       {Volume(), Type()},
       TargetImport},

      {"target list",
       "list the targets of this host",
       {"Shows for each target its kind and volume, whether its bytes are there, how many "
        "snapshots it has and where it is. A question mark, null in JSON, stands for what the host "
        "cannot find out, as on a volume that is not mounted. What is left of one whose removal "
        "has "
        "begun is named, too."},
       "Nothing.",
       {},
       {},
       TargetList},

      {"target remove",
       "remove a target with all its bytes",
       {"A target that has snapshots is refused without --with-snapshots. A group that has the "
        "target keeps it in its list, and takes no snapshot any more.",
        "A removal that has begun is never taken back. When it fails, the same command finishes "
        "it, and then asks nothing."},
       "The target's bytes are lost, and its snapshots with --with-snapshots.",
       {Argument("ID", Value::kTarget, "the target")},
       {Flag("--with-snapshots", "remove its snapshots too"), Yes()},
       TargetRemove},

      {"target prune",
       "delete what no group snapshot has of a target",
       {"For what a creation, a deletion or a repair of group snapshots had to leave on the "
        "target: "
        "its message names them. With --snapshot deletes those, without it all that carry no "
        "description, as those of group snapshots, and that no group's catalogue records and no "
        "plan needs. Refused while the catalogue of any group cannot be read. Nobody else may be "
        "taking snapshots of the target meanwhile."},
       "Snapshots of the target are lost.",
       {Argument("ID", Value::kTarget, "the target")},
       {{"--snapshot", Value::kText, "SNAPSHOT", "only this target snapshot", false, true},
        Flag("--dry-run", "only show what would be deleted"),
        Yes()},
       TargetPrune},

      {"group create",
       "make a group of targets",
       {"The group's directory holds its catalogue, drgroup.db, and its definition, group.json. "
        "The "
        "host finds it through a link under the group's identifier.",
        "After an interruption the same command finishes the work. With a directory that holds the "
        "same group with the same targets already, it makes the lost link again."},
       "Adds a group: its directory, catalogue, definition and link. A failure leaves nothing of "
       "it.",
       {Argument("ID", Value::kNewGroup, "the new group's identifier")},
       {{"--target", Value::kTarget, "T", "its targets, in the order in which they are taken", true,
         true},
        {"--dir", Value::kDirectory, "DIR",
         "the directory for its catalogue; groups/ID in the host's state directory when left out"}},
       GroupCreate},

      {"group list",
       "list the groups",
       {"A group that cannot be used is listed with the reason."},
       "Nothing.",
       {},
       {},
       GroupList},

      {"group show",
       "show a group and its targets",
       {"Shows where its catalogue is, how many group snapshots it has, the latest of them, and "
        "whether each of its targets is there; a question mark, null in JSON, stands for one that "
        "the host cannot find out about."},
       "Nothing.",
       {GroupArgument("the group")},
       {},
       GroupShow},

      {"group rename",
       "give a group another identifier",
       {"Its definition, every record of its catalogue and its link get the new name, and its "
        "group "
        "snapshots are called NEW-gsnap-SECONDS afterwards. The directory of the catalogue keeps "
        "its name.",
        "After an interruption the same command finishes the work; until then the group cannot be "
        "used. A failure changes nothing."},
       "The group's identifier, and with it those of its group snapshots.",
       {Argument("OLD", Value::kGroup, "the group"),
        Argument("NEW", Value::kNewGroup, "its new identifier, which no group has")},
       {},
       GroupRename},

      {"group relink",
       "let a group's link lead to its own directory again",
       {"For a group whose link another program has pointed elsewhere. Checks first that the "
        "definition in the directory is the group's and that its catalogue can be read and has "
        "records of this group only.",
        "A failure changes nothing, and an interruption leaves the old link or the new one."},
       "The group's link.",
       {GroupArgument("the group"),
        Argument("DIRECTORY", Value::kDirectory, "the directory that the group was made with")},
       {},
       GroupRelink},

      {"group upgrade",
       "bring the catalogues of groups to the current schema",
       {"Does all groups when none is named. A group that cannot be upgraded does not stop the "
        "others. A catalogue that is current stays as it is."},
       "The schema of the groups' catalogues; columns that are new get their default.",
       {{"GROUP", Value::kGroup, "GROUP", "the groups; all when left out", false, true}},
       {},
       GroupUpgrade},

      {"group delete",
       "delete a group's catalogue; its targets stay",
       {"Refused while the group has group snapshots. With --force they are deleted first, locked "
        "ones too.",
        "With --force a catalogue that cannot be used is given up as well. The report names the "
        "target snapshots that stay on their targets although nothing records them any more."},
       "The group's link, catalogue and definition are lost; with --force its group snapshots too.",
       {GroupArgument("the group")},
       {Flag("--force", "delete its group snapshots too, or a catalogue that cannot be used"),
        Yes()},
       GroupDelete},

      {"snapshot create",
       "take a snapshot of every target of a group",
       {"Takes one snapshot of each target, in the order of the group, and records them as one "
        "group snapshot. A warning names the targets on volumes whose snapshots are copies: those "
        "are only as consistent as the writers are quiet.",
        "When a target fails, no group snapshot is recorded, and the snapshots that were taken of "
        "targets before it are deleted again. What cannot be deleted stays, and the message names "
        "it."},
       "Adds a snapshot to each target and a group snapshot to the catalogue.",
       {GroupArgument("the group")},
       {Description(), Flag("--lock", "lock it against deletion"),
        Consistency("how consistent whoever asks for it made the targets; unspecified when left "
                    "out")},
       SnapshotCreate},

      {"snapshot list",
       "list the group snapshots of a group",
       {"In the order in which they were taken, with how many target snapshots each has. The "
        "status "
        "is that of the catalogue, or incomplete when the group snapshot has no part of a target "
        "that the group's definition names."},
       "Nothing.",
       {GroupArgument("the group")},
       {Flag("--latest", "only the newest one")},
       SnapshotList},

      {"snapshot show",
       "show a group snapshot and its target snapshots",
       {"Shows what the catalogue says, and for each target snapshot whether it really exists and "
        "where its bytes can be read. A question mark, null in JSON, stands for one that the host "
        "cannot find out about, such as on a volume that is not mounted. An incomplete one is "
        "shown "
        "with the targets that it lacks."},
       "Nothing.",
       {Gsnap()},
       {},
       SnapshotShow},

      {"snapshot edit",
       "change what is remembered of a group snapshot",
       {"What no option is given for stays as it is."},
       "The description, the lock and the consistency in the catalogue.",
       {Gsnap()},
       {Description(), Flag("--lock", "lock it against deletion"), Flag("--unlock", "unlock it"),
        Consistency("how consistent whoever asked for it had made the targets")},
       SnapshotEdit},

      {"snapshot restore",
       "roll every target of a group back to a group snapshot",
       {"Each target holds exactly the snapshot's bytes afterwards; its snapshots stay. Nobody "
        "should use the targets meanwhile: whoever has one open goes on with the bytes that it "
        "had.",
        "Targets are restored one after the other, each whole or not at all. Nothing is begun "
        "unless every target snapshot is there. When a target fails, the message tells which "
        "targets were restored, which one failed and which were not started, and the same command "
        "can be run again. Refused without --force when the status of the group snapshot is bad, "
        "or when it is "
        "incomplete: with it the targets that it has no part of stay as they are."},
       "What the targets hold now is lost.",
       {Gsnap()},
       {Flag("--force", "restore it although it is bad or incomplete"), Yes()},
       SnapshotRestore},

      {"snapshot clone",
       "make new targets from a group snapshot",
       {"Makes a new, independent target of every target snapshot, on the same volume and with a "
        "UUID for an identifier, and reports which target it comes from. The new targets belong "
        "to no group.",
        "All or nothing: when one fails, the clones made before are removed again, and the message "
        "names any that could not be. What an interruption leaves whole is in \"drgroupctl target "
        "list\". Refused without --force when the group snapshot is incomplete."},
       "Adds targets to this host. A failure leaves nothing of them.",
       {Gsnap()},
       {Flag("--force", "clone it although it is incomplete")},
       SnapshotClone},

      {"snapshot delete",
       "delete a group snapshot with its target snapshots",
       {"Refused without --force when it is locked, and when the host cannot tell of a target "
        "snapshot whether it exists.",
        "When a target snapshot cannot be deleted, the others are, the group snapshot stays "
        "listed as incomplete, and the same command can be run again. One that turns out to exist "
        "although its record is gone is named; \"target prune\" deletes it."},
       "The target snapshots are lost, then their records.",
       {Gsnap()},
       {Flag("--force", "delete it although it is locked, or forget what is out of reach"), Yes()},
       SnapshotDelete},

      {"snapshot repair",
       "make a group's catalogue agree with its targets",
       {"Compares it with the snapshots that the targets really have. Deletes group snapshots that "
        "are only half recorded, and sets the status of the others: "
        "ready when all their target snapshots are there, bad when a target or a target snapshot "
        "is gone, unknown when a target cannot be asked, as on a volume that is not mounted. One "
        "that is bad stays bad.",
        "Group snapshots that lack a part of a target of the group are named and left as they are.",
        "Shows first what it is going to change. The report names target snapshots that stay on "
        "their targets although nothing records them any more."},
       "Half recorded group snapshots are lost; the status of others changes.",
       {GroupArgument("the group")},
       {Flag("--dry-run", "only show what would be changed"), Yes()},
       SnapshotRepair},
  };
}

}  // namespace

const std::vector<Verb>& Verbs() {
  static const std::vector<Verb> verbs = [] {
    std::vector<Verb> all = HostVerbs();
    for (const Verb& each : CatalogueVerbs()) all.push_back(each);
    for (const Verb& each : PlanVerbs()) all.push_back(each);
    return all;
  }();
  return verbs;
}

std::string Verb::Usage() const {
  std::string usage;
  const auto add = [&usage](const Parameter& each, const std::string& text) {
    const std::string many = each.repeated ? text + "..." : text;
    usage += (usage.empty() ? "" : " ") + (each.required ? many : "[" + many + "]");
  };
  for (const Parameter& each : arguments) add(each, each.name);
  for (const Parameter& each : options) {
    add(each, each.placeholder.empty() ? each.name : each.name + " " + each.placeholder);
  }
  return usage;
}

}  // namespace drgroupctl
