#pragma once

#include <vreldr/plan.h>
#include <vreldrgroup/record/gsnapshot.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "group_store.h"
#include "report.h"

namespace drgroupctl {

// How the replica of one target would take over.
struct Takeover {
  std::string target;  // of the group
  std::string driven;  // the copy that the action is asked for, of the same plan
  VrelDR::DRPlan plan;
  std::string snap_id;
  std::uint32_t snap_time = 0;     // 0 when it cannot be told
  std::vector<std::string> newer;  // snapshots that the source has and that would be lost
  bool is_source_known = false;    // whether `newer` is all of them
  bool is_source_alive = false;
};

// Which snapshot each target of the group would take over with: the one of the group snapshot,
// which may be of the group itself or of its DR copies, or without one the last that arrived.
// Throws when a target has no plan or no such snapshot.
std::vector<Takeover> PlanTakeover(const Group& group,
                                   const std::optional<VrelDRGroup::GsnapshotInfo>& gsnap);

// What is lost with one takeover, in one line: "everything written since ...".
std::string LostText(const Takeover& takeover);

// Adds them to a report: the table "takeover".
void AddTakeover(Report& report, const std::vector<Takeover>& takeovers);

}  // namespace drgroupctl
