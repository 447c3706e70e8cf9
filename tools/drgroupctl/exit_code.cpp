#include "exit_code.h"

#include <vreldr/error.h>

namespace drgroupctl {

const std::vector<ExitCodeInfo>& ExitCodes() {
  static const std::vector<ExitCodeInfo> codes = {
      {ExitCode::kDone, "done", "Done."},
      {ExitCode::kFailed, "failed", "Failed for a reason that no other code stands for."},
      {ExitCode::kUsage, "usage", "The command line is wrong; nothing was done."},
      {ExitCode::kNotFound, "not_found",
       "A group, target, group snapshot or volume that was named does not exist."},
      {ExitCode::kRefused, "refused",
       "Refused: it exists already, is locked by a user, is in use, or needs --yes or --force."},
      {ExitCode::kCatalogue, "catalogue",
       "The group's catalogue, its link or its group.json cannot be used."},
      {ExitCode::kBusy, "busy", "Another process works on the same thing; try again later."},
      {ExitCode::kConfiguration, "configuration",
       "The host's configuration is missing, unreadable or wrong."},
      {ExitCode::kStorage, "storage",
       "A volume or file system is gone, full, read-only or failing."},
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
    case VrelDR::kErrVolumeMissing:
    case VrelDR::kErrNoSpace:
    case VrelDR::kErrReadOnly:
    case VrelDR::kErrIo:
      return ExitCode::kStorage;
    case VrelDR::kErrExists:
      return ExitCode::kRefused;
    case VrelDR::kErrBusy:
      return ExitCode::kBusy;
    case VrelDR::kErrSnapshotMissing:
    case VrelDR::kErrTargetMissing:
      return ExitCode::kNotFound;
    default:
      return ExitCode::kFailed;
  }
}

}  // namespace drgroupctl
