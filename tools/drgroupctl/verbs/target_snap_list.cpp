#include <vreldr/target_operation.h>

#include "action/snapshot_claims.h"
#include "host/host.h"
#include "output/console.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

using VrelDR::Operation::Snapshot;

const char* StateOf(const Snapshot& snapshot, const std::vector<std::string>& claims) {
  if (!claims.empty()) return "claimed";
  return snapshot.meta.description.empty() ? "orphaned" : "single";
}

Json::Value RowOf(const Snapshot& snapshot, const std::vector<std::string>& claims) {
  Json::Value row(Json::objectValue);
  row["tsnap_id"] = snapshot.snap_id;
  row["time"] = snapshot.create_time;
  row["state"] = StateOf(snapshot, claims);
  row["description"] = snapshot.meta.description;
  row["claims"] = Json::Value(Json::arrayValue);
  for (const std::string& each : claims) row["claims"].append(each);
  row["claim_text"] = Join(claims, "; ");
  return row;
}

Report RunTargetSnapList(const Arguments& args, Warnings& warnings) {
  const VrelDR::Target target = RequireTarget(args.Text("ID")).target;
  const VrelDR::TargetOperation operation(target);
  const std::vector<Snapshot> snapshots = operation.ListSnapshots();
  if (operation.GetErrCode() != 0) ThrowHostError(operation);
  const SnapshotClaims claims(target.GetId(), snapshots,
                              args.Has("--unclaimed") ? Evidence::kFirst : Evidence::kAll);
  for (const Failure& each : claims.Doubts()) warnings.Print(each.message);
  std::size_t unclaimed = 0;
  Json::Value rows(Json::arrayValue);
  for (const Snapshot& each : snapshots) {
    std::vector<std::string> reasons = claims.On(each);
    if (!claims.Doubts().empty()) reasons.emplace_back("may be claimed by what cannot be read");
    if (reasons.empty()) ++unclaimed;
    if (reasons.empty() || !args.Has("--unclaimed")) rows.append(RowOf(each, reasons));
  }

  Report report;
  report.AddField({"target_id", "Target"}, target.GetId());
  report.AddField({"snapshot_count", "Snapshots"}, Json::UInt64(snapshots.size()));
  report.AddField({"unclaimed_count", "Unclaimed"}, Json::UInt64(unclaimed));
  report.AddTable({"snapshots", "Snapshots"},
                  {{"tsnap_id", "TARGET SNAPSHOT"},
                   {"time", "TIME", Shown::kTime},
                   {"state", "STATE"},
                   {"description", "DESCRIPTION", Shown::kIfAny},
                   {"claim_text", "CLAIMED, AS IT", Shown::kIfAny}},
                  rows);
  return report;
}

}  // namespace

Verb TargetSnapList() {
  return {"target snap-list",
          "list a target's snapshots and what claims each",
          {"A snapshot is claimed when it is locked, when a group's catalogue records it, and when "
           "a plan holds it, has it in hand or is going to send it. One that nothing claims is "
           "single when it carries a description, as somebody took it, and else orphaned, as what "
           "group snapshots leave behind. A catalogue that cannot be read counts as a claim on "
           "every snapshot, and a warning names it. \"target snap-remove\" deletes what nothing "
           "claims."},
          "Nothing.",
          {Argument("ID", Value::kTarget, "the target")},
          {Flag("--unclaimed", "only those that nothing claims")},
          RunTargetSnapList};
}

}  // namespace drgroupctl
