#include "foundation/host_init.h"

#include "base/kill_point.h"
#include "foundation/durable.h"
#include "foundation/records.h"
#include "foundation/volume_identity.h"
#include "vreldrcore/uuid.h"

namespace VrelHost {

namespace {

using VrelDR::Quoted;

// The node that the volumes' identities name, when the records know these very volumes and all of
// them name the same one; empty otherwise.
std::string FindNodeOnVolumes(const Config& config) {
  const VrelDRCore::SqliteDB db = RecordsAt(config.state_dir + "/" + kRecordsName);
  VrelDRCore::SelectCommand command;
  command.SetTable(VrelDRCore::SqliteTableHandler("volumes"));
  std::vector<std::string> known;
  (void)db.SelectEach(command, [&known](const VrelDRCore::SqliteValueList& row) {
    std::string id;
    if (row.GetValue("id", id)) known.push_back(id);
    return true;
  });
  std::string node;
  for (const VolumeConfig& each : config.volumes) {
    const VolumeTrace found = AskVolume(each);
    if (!found.identity) continue;
    for (const std::string& id : known) {
      if (id != found.identity->id) continue;
      if (!node.empty() && node != found.identity->node) return {};
      node = found.identity->node;
    }
  }
  return node;
}

Status Examine(const Config& config, const StateSight& sight, HostPrognosis& prognosis) {
  const std::string records = config.state_dir + "/" + kRecordsName;
  auto condition = RecordsCondition::kDamaged;
  if (sight.has_records) {
    Status status = ExamineRecords(records, condition);
    if (!status.IsOk()) return status;
    if (condition == RecordsCondition::kNewer) {
      return {VrelDR::kErrUnsupported,
              "the host's records " + Quoted(records) +
                  " are of a version that this program does not know; use the one that made them"};
    }
  }
  const bool goodRecords = sight.has_records && condition == RecordsCondition::kGood;
  prognosis.is_whole = sight.IsWhole() && goodRecords;
  prognosis.node_id = sight.node_id;
  if (prognosis.node_id.empty() && goodRecords) prognosis.node_id = FindNodeOnVolumes(config);
  prognosis.traces = TracesInState(config.state_dir, sight);
  if (sight.has_records && !goodRecords) {
    for (Trace& each : prognosis.traces) {
      if (each.text == Quoted(records) + " are there") {
        each.text = Quoted(records) + " are empty or damaged";
      }
    }
  }
  for (Trace& each : TracesOnVolumes(config)) prognosis.traces.push_back(std::move(each));
  if (sight.has_identity && sight.node_id.empty()) {
    prognosis.damaged.push_back(config.state_dir + "/" + kIdentityName);
  }
  if (goodRecords) return {};
  if (sight.has_records) prognosis.damaged.push_back(records);
  for (const char* each : kSideFiles) {
    bool there = false;
    Status status = IsThere(records + each, there);
    if (!status.IsOk()) return status;
    if (there) prognosis.damaged.push_back(records + each);
  }
  return {};
}

}  // namespace

Status ExamineHost(const Config& config, HostPrognosis& prognosis) {
  prognosis = {};
  StateSight sight;
  Status status = LookAtState(config.state_dir, sight);
  return status.IsOk() ? Examine(config, sight, prognosis) : status;
}

Status InitHost(const Config& config, std::string& nodeId, std::vector<std::string>& moved) {
  const std::string& dir = config.state_dir;
  VrelDR::Fd lock;
  StateSight sight;
  HostPrognosis prognosis;
  Status status = MakeDirs(dir);
  if (status.IsOk()) status = LockState(dir, lock);
  if (status.IsOk()) status = LookAtState(dir, sight);
  if (status.IsOk()) status = Examine(config, sight, prognosis);
  if (status.IsOk() && prognosis.is_whole) {
    return {VrelDR::kErrExists, "the state directory " + Quoted(dir) +
                                    " has a host already, node " + Quoted(sight.node_id) +
                                    "; nothing is to be done"};
  }
  if (status.IsOk()) status = MarkMaking(dir);
  for (const std::string& each : prognosis.damaged) {
    if (!status.IsOk()) return status;
    std::string aside;
    status = MoveAside(each, aside);
    if (status.IsOk()) moved.push_back(aside);
    VrelDR::KillPoint(VrelDR::kHostMovedAside);
  }
  if (!status.IsOk()) return status;
  nodeId = prognosis.node_id.empty() ? VrelDRCore::GenerateUUID() : prognosis.node_id;
  return MakeHost(dir, nodeId);
}

}  // namespace VrelHost
