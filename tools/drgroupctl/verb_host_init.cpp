#include <vreldr/host_state.h>

#include "console.h"
#include "failure.h"
#include "host.h"
#include "text.h"
#include "verb_functions.h"

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

}  // namespace

Report HostInit(const Arguments& args) {
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

}  // namespace drgroupctl
