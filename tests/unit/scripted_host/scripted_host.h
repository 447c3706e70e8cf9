#pragma once

#include <json/value.h>
#include <vrelcore/export.h>
#include <vreldr/plan.h>
#include <vreldr/report.h>
#include <vreldr/snapshot.h>
#include <vreldr/target.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

// A stand-in for the host's replication and node libraries, under their names. It answers what the
// test program's script says and writes down every call.
namespace scripted_host {

// A snapshot as a target has it.
inline VrelDR::Operation::Snapshot Snap(std::uint32_t time, const std::string& id) {
  VrelDR::Operation::Snapshot snapshot;
  snapshot.create_time = time;
  snapshot.snap_id = id;
  return snapshot;
}

// How a call fails: the code and the message that the operation then records.
struct Failure {
  int code = 0;
  Json::Value message;
};

// One target of the host. A target that the script does not have does not exist.
struct TargetScript {
  bool exists = true;
  // The snapshots that the target has, oldest first. TakeSnapshot and DeleteSnapshot change them.
  std::vector<VrelDR::Operation::Snapshot> snapshots;
  // How many (empty) snapshots the next calls of ListSnapshots give, whatever the target has.
  std::deque<std::size_t> listed_counts;
  // The snapshots that the next calls of TakeSnapshot make. A call without one fails the test by
  // throwing, since every test says what its snapshots are called.
  std::deque<VrelDR::Operation::Snapshot> next;
  // The identifiers of the targets that the next calls of CloneSnapshot make; a call without one
  // throws, as above. Those targets then exist in the script.
  std::deque<std::string> next_clones;
  // Calls that fail: by the name of the call, such as "TakeSnapshot".
  std::map<std::string, Failure> failures;
};

// What the host is like and what was asked of it.
struct Script {
  std::map<std::string, TargetScript> targets;  // by identifier
  std::map<int, std::string> code_texts;        // what GetErrCodeStr says of a code
  std::set<int> without_manager;                // kinds of target that get a null manager
  std::string node_id;

  // The plans that a target's selection finds.
  std::map<std::string, std::vector<VrelDR::DRPlan>> plans;
  std::map<std::string, VrelDR::DRSiteStatus> site_status;  // by plan
  // What plans tell, by plan and kind. What is not here cannot be read.
  std::map<std::pair<std::string, VrelDR::DRReportType>, Json::Value> reports;
  // What the connections of a plan between two volumes are.
  VrelDR::PlanRemoteConn local_src_conn;
  VrelDR::PlanRemoteConn local_dst_conn;
  // Calls about plans that fail, each as it is written down, such as "PlanSync(p1).Run(false)".
  std::map<std::string, Failure> failures;

  // Every call in order, as "Call(target, arguments)"; texts stand without quotes.
  std::vector<std::string> calls;
  // Runs at every call after it was written down and before it is answered.
  std::function<void(const std::string& call)> on_call;
};

// Makes `script` the one that answers, or none when it is null. A call without a script throws.
VREL_API void Install(Script* script);

}  // namespace scripted_host
