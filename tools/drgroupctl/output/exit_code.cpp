#include "output/exit_code.h"

#include <vreldr/error.h>

namespace drgroupctl {

const std::vector<ExitCodeInfo>& ExitCodes() {
  static const std::vector<ExitCodeInfo> codes = {
      {ExitCode::kDone, "done", "Done."},
      {ExitCode::kFailed, "failed", "Failed for a reason that no other code stands for."},
      {ExitCode::kUsage, "usage", "The command line is wrong; nothing was done."},
      {ExitCode::kNotFound, "not_found",
       "A group, target, group snapshot, plan, volume, file or folder that was named does not "
       "exist, or a target has no plan."},
      {ExitCode::kRefused, "refused",
       "Refused: it exists already, is locked, is in use, the state of a plan does not allow it, "
       "this host cannot do it, or it needs --yes or --force."},
      {ExitCode::kCatalogue, "catalogue",
       "The group's catalogue, its link or its group.json cannot be used."},
      {ExitCode::kBusy, "busy", "Another process works on the same thing; try again later."},
      {ExitCode::kConfiguration, "configuration",
       "The host's configuration is missing, unreadable or wrong."},
      {ExitCode::kStorage, "storage",
       "A volume, a file system, or what the host keeps of itself is gone, damaged, full, "
       "read-only or failing."},
      {ExitCode::kStopped, "stopped",
       "Ended before its end because somebody asked for it; the same command goes on."},
  };
  return codes;
}

const ExitCodeInfo& Describe(ExitCode code) {
  return ExitCodes()[static_cast<std::size_t>(code)];
}

ExitCode FromHostError(int code) {
  switch (code) {
    case VrelDR::kErrBadArgument:
      return ExitCode::kUsage;
    case VrelDR::kErrConfig:
      return ExitCode::kConfiguration;
    case VrelDR::kErrStore:
    case VrelDR::kErrVolumeMissing:
    case VrelDR::kErrUnreachable:
    case VrelDR::kErrNoSpace:
    case VrelDR::kErrReadOnly:
    case VrelDR::kErrIo:
      return ExitCode::kStorage;
    case VrelDR::kErrExists:
    case VrelDR::kErrLocked:
    case VrelDR::kErrPlanState:
    case VrelDR::kErrUnsupported:
    case VrelDR::kErrInUse:
    case VrelDR::kErrNotHeld:
      return ExitCode::kRefused;
    case VrelDR::kErrBusy:
      return ExitCode::kBusy;
    case VrelDR::kErrStopped:
      return ExitCode::kStopped;
    case VrelDR::kErrPlanMissing:
    case VrelDR::kErrSnapshotMissing:
    case VrelDR::kErrTargetMissing:
      return ExitCode::kNotFound;
    default:
      return ExitCode::kFailed;
  }
}

}  // namespace drgroupctl
