#include "command/confirm.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDR::RecordedTarget;

std::string Describe(const RecordedTarget& target) {
  const std::size_t all = target.snapshots.size() + target.missing_snapshots.size();
  std::string text = "target " + Quote(target.target_id) +
                     (target.is_existed ? " is there" : " is NOT there") + ", with " +
                     std::to_string(target.snapshots.size()) + " of " + Count(all, "snapshot");
  if (!target.missing_snapshots.empty()) {
    text += "; NOT there: " + Join(target.missing_snapshots, ", ");
  }
  return text;
}

Json::Value ToJson(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& each : texts) list.append(each);
  return list;
}

Json::Value ToJson(const std::vector<RecordedTarget>& targets) {
  Json::Value rows(Json::arrayValue);
  for (const RecordedTarget& each : targets) {
    Json::Value row(Json::objectValue);
    row["target_id"] = each.target_id;
    row["exists"] = each.is_existed;
    row["snapshots"] = ToJson(each.snapshots);
    row["missing_snapshots"] = ToJson(each.missing_snapshots);
    rows.append(row);
  }
  return rows;
}

void ConfirmAdoption(const Arguments& args, const VrelDR::VolumeExamination& found) {
  std::size_t gone = 0;
  std::string details = "Recorded on the volume:\n";
  for (const RecordedTarget& each : found.targets) {
    if (!each.is_existed || !each.missing_snapshots.empty()) ++gone;
    details += "  " + Printable(Describe(each)) + "\n";
  }
  if (found.targets.empty()) details += "  no target\n";
  Confirm(args,
          "take " + Quote(found.where) + " for volume " + Quote(args.Text("NAME")) + " although " +
              Printable(found.why) + "; of " + Count(found.targets.size(), "recorded target") +
              " " + std::to_string(gone) + " are not there in full",
          details);
}

Report RunVolumeInit(const Arguments& args, Warnings& /*warnings*/) {
  const std::string name = args.Text("NAME");
  FindVolume(name);
  const VrelDR::VolumeManager manager;
  VrelDR::VolumeExamination found;
  if (!manager.Examine(name, found)) ThrowHostError(manager);
  if (found.needs_adoption && !found.is_initialised && args.Has("--adopt")) {
    ConfirmAdoption(args, found);
  }
  std::string id;
  if (!manager.Initialise(name, args.Has("--adopt"), id)) ThrowHostError(manager);

  Report report;
  report.AddText("Initialised volume " + Quote(name) + ".");
  report.AddField({"volume", "Volume"}, name);
  report.AddField({"id", "Identity"}, id);
  report.AddField({"where", "Where"}, found.where);
  report.AddField({"is_adopted", "Adopted"}, found.needs_adoption);
  report.AddTable({"targets", "Recorded targets"},
                  {{"target_id", "TARGET"},
                   {"exists", "EXISTS"},
                   {"snapshots", "SNAPSHOTS"},
                   {"missing_snapshots", "MISSING", Shown::kIfAny}},
                  ToJson(found.targets));
  return report;
}

}  // namespace

Verb VolumeInit() {
  return {"volume init",
          "give a volume an identity",
          {"A volume is known by its identity. An empty one gets it with its first target. This "
           "verb is for a volume that holds something else already, and with --adopt for one that "
           "the host does not take for its own: whose data has moved to another file system, that "
           "has lost its identity, or that another node has used.",
           "With --adopt it shows first which of the recorded targets and snapshots are there. "
           "Make sure that the right volume is mounted."},
          "The volume's identity, on it and in the host's records; no target.",
          {Argument("NAME", Value::kVolume, "the volume, as the configuration names it")},
          {Flag("--adopt", "take what is there for the volume, whatever identity it has"), Yes()},
          RunVolumeInit};
}

}  // namespace drgroupctl
