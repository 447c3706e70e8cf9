#include <vreldr/host_state.h>

#include "command/confirm.h"
#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Json::Value ToJson(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& each : texts) list.append(Printable(each));
  return list;
}

std::string Lines(const std::string& title, const std::vector<std::string>& texts) {
  std::string lines = texts.empty() ? std::string() : title + "\n";
  for (const std::string& each : texts) lines += "  " + Printable(each) + "\n";
  return lines;
}

Report RunHostInit(const Arguments& args, Warnings& /*warnings*/) {
  const VrelDR::HostState state;
  VrelDR::HostExamination found;
  if (!state.Examine(found)) ThrowHostError(state);
  if (found.is_made) {
    throw Failure(ExitCode::kRefused, "the state directory " + Quote(found.state_dir) +
                                          " has a host already, node " + Quote(found.node_id) +
                                          ": nothing is to be done");
  }
  if (!found.traces.empty()) {
    Confirm(args,
            "make a host in " + Quote(found.state_dir) + ", although there are traces of one (" +
                Printable(Join(found.traces, "; ")) + ")" +
                (found.damaged.empty() ? std::string() : ", and move damaged files aside"),
            Lines("Traces of a host:", found.traces) + Lines("To be moved aside:", found.damaged));
  }
  std::string nodeId;
  std::vector<std::string> moved;
  if (!state.Make(nodeId, moved)) ThrowHostError(state);

  Report report;
  report.AddText("Made the host.");
  report.AddField({"node_id", "Node"}, nodeId);
  report.AddField({"state_dir", "State directory"}, found.state_dir);
  report.AddField({"found", "Found"}, ToJson(found.traces));
  report.AddField({"moved", "Moved aside to"}, ToJson(moved));
  return report;
}

}  // namespace

Verb HostInit() {
  return {
      "host init",
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
      RunHostInit};
}

}  // namespace drgroupctl
