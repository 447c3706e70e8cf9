#include "groups/gsnap_cut.h"

#include <vreldr/target_operation.h>

#include <map>

#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

std::string GradeText(VrelDR::CutGrade grade) {
  switch (grade) {
    case VrelDR::CutGrade::kOneInstant:
      return "one instant proven";
    case VrelDR::CutGrade::kWritersHeld:
      return "writers were held";
    default:
      return "not of one instant";
  }
}

GsnapCut Unknown(const std::string& problem) {
  return {GsnapCut::Kind::kUnknown, {}, "cannot be told: " + problem};
}

// The targets, by the cut that made their snapshots.
std::string MixedText(const std::map<std::string, std::vector<std::string>>& targets) {
  std::string text = "of different cuts:";
  for (const auto& [cut, ids] : targets) {
    text +=
        (text.back() == ':' ? " " : "; ") + Join(ids, ", ") + " of " + (cut.empty() ? "none" : cut);
  }
  return text;
}

}  // namespace

GsnapCut CutOf(const VrelDR::CutInfo& info) {
  return {GsnapCut::Kind::kOne, info, GradeText(info.grade)};
}

GsnapCut CutOf(const VrelDRGroup::GsnapshotInfo& gsnap) {
  SnapshotsOfTargets snapshots;
  for (const VrelDRGroup::TargetSnapshot& each : gsnap.target_snapshots) {
    snapshots.emplace_back(each.target, each.tsnap_id);
  }
  return CutOf(snapshots);
}

GsnapCut CutOf(const SnapshotsOfTargets& snapshots) {
  std::map<std::string, std::vector<std::string>> targets;
  for (const auto& [target, snapId] : snapshots) {
    const VrelDR::TargetOperation operation(target);
    const VrelDR::Operation::Snapshot found = operation.GetSnapshot(snapId);
    if (found.snap_id.empty() && operation.GetErrCode() != 0) {
      return Unknown(HostMessage(operation));
    }
    targets[found.cut_id].push_back(Quote(target.GetId()));
  }
  if (targets.size() > 1) return {GsnapCut::Kind::kMixed, {}, MixedText(targets)};
  const std::string cutId = targets.empty() ? "" : targets.begin()->first;
  VrelDR::CutInfo info;
  const VrelDR::CutReporter reporter;
  if (!cutId.empty() && reporter.Find(cutId, info)) return CutOf(info);
  if (!cutId.empty() && reporter.GetErrCode() != 0) return Unknown(HostMessage(reporter));
  return {GsnapCut::Kind::kNotRecorded, {}, "not recorded"};
}

VrelDRGroup::GsnapCwType ConsistencyOf(const GsnapCut& cut) {
  if (cut.kind != GsnapCut::Kind::kOne || cut.info.grade == VrelDR::CutGrade::kNone) {
    return VrelDRGroup::kCwUnspecified;
  }
  return cut.info.is_app_consistent ? VrelDRGroup::kCwApplicationConsistent
                                    : VrelDRGroup::kCwCrashConsistent;
}

void AddCut(const GsnapCut& cut, VrelDRGroup::GsnapCwType recorded, Report& report) {
  report.AddField({"is_consistency_by_hand", "Consistency said by hand", Shown::kIfAny},
                  recorded != ConsistencyOf(cut));
  AddCut(cut, report);
}

void AddCut(const GsnapCut& cut, Report& report) {
  const bool isOne = cut.kind == GsnapCut::Kind::kOne;
  const auto ofOne = [&](Json::Value value) { return isOne ? std::move(value) : Json::Value(); };
  report.AddField({"cut_grade", "Cut"}, cut.text);
  report.AddField({"cut_id", "Cut's identifier", Shown::kIfAny}, isOne ? cut.info.id : "");
  report.AddField({"cut_method", "Made by", Shown::kIfAny}, isOne ? cut.info.method : "");
  report.AddField({"cut_members", "Of targets", Shown::kIfAny}, ofOne(cut.info.members));
  report.AddField({"cut_skew_ms", "Skew in ms", Shown::kIfAny}, ofOne(cut.info.skew_ms));
  report.AddField({"cut_held_ms", "Writers held for ms", Shown::kIfAny}, ofOne(cut.info.held_ms));
}

}  // namespace drgroupctl
