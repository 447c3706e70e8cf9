#include "host/new_target.h"

#include "host/host.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

VrelDR::TargetSpec NewTargetSpec(const Arguments& args) {
  VrelDR::TargetSpec spec;
  spec.target = VrelDR::Target(args.Text("ID"), TypeNumber(args.Text("--type")));
  spec.volume = args.Text("--volume");
  return spec;
}

Report MakeTarget(const VrelDR::TargetSpec& spec) {
  const std::string& id = spec.target.GetId();
  VrelDR::TargetEntry entry;
  if (FindTarget(id, entry)) {
    throw Failure(ExitCode::kRefused, "target " + Quote(id) + " exists already on volume " +
                                          Quote(entry.volume) + ": choose another identifier");
  }
  RequireVolume(spec.volume);
  const VrelDR::TargetManager manager;
  if (!manager.Create(spec)) ThrowHostError(manager);
  entry = RequireTarget(id);

  Report report;
  report.AddText("Created target " + Quote(id) + ".");
  report.AddField({"target_id", "Target"}, id);
  report.AddField({"type", "Type"}, TypeName(entry.target.GetType()));
  report.AddField({"volume", "Volume"}, entry.volume);
  report.AddField({"path", "Path"}, entry.path);
  return report;
}

}  // namespace drgroupctl
