#include "action/group_cut.h"

#include "host/copy_warning.h"
#include "host/host.h"
#include "output/text.h"

namespace drgroupctl {

void PrepareCut(const Group& group, const std::vector<VrelDR::Target>& targets,
                const std::string& failed, VrelDR::Cut& cut, Warnings& warnings) {
  const bool isGood = cut.Prepare(targets, group.quiesce);
  for (const std::string& each : cut.GetTroubles()) warnings.Print(Printable(each));
  if (isGood) return;
  throw Failure(FromHostError(cut.GetErrCode()),
                "group " + Quote(group.id) + ": " + failed + ": " + HostMessage(cut));
}

void WarnOfSkew(const Group& group, const std::vector<VrelDR::Target>& targets,
                const VrelDR::CutInfo& info, Warnings& warnings) {
  if (info.grade != VrelDR::CutGrade::kNone) return;
  if (targets.size() == 1) return WarnOfCopies(warnings, targets);
  warnings.Print("the snapshots of group " + Quote(group.id) +
                 " are not of one instant: they took " + std::to_string(info.skew_ms) +
                 " ms, and nobody was held meanwhile: tell who writes its targets with "
                 "\"drgroupctl group quiesce " +
                 group.id + "\"");
}

}  // namespace drgroupctl
