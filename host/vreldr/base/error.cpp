#include "vreldr/error.h"

namespace VrelDR {

std::string DRErrRecorder::GetErrCodeStr(int code) const {
  switch (code) {
    case kErrBadArgument:
      return "bad argument";
    case kErrStore:
      return "the host's records could not be read or written";
    case kErrNotRun:
      return "not run to its end";
    case kErrConfig:
      return "the configuration is missing or wrong";
    case kErrVolumeMissing:
      return "the volume does not exist";
    case kErrNoSpace:
      return "the volume is full";
    case kErrReadOnly:
      return "the volume cannot be written";
    case kErrIo:
      return "reading or writing failed";
    case kErrExists:
      return "exists already";
    case kErrBusy:
      return "busy";
    case kErrStopped:
      return "stopped on request";
    case kErrLocked:
      return "held by a lock or by a plan";
    case kErrUnsupported:
      return "not supported";
    case kErrUnreachable:
      return "the volume does not answer";
    case kErrInUse:
      return "somebody has it open";
    case kErrNotHeld:
      return "the writers could not be held";
    case kErrPlanMissing:
      return "the plan does not exist";
    case kErrPlanState:
      return "the plan's state does not allow it";
    case kErrBadSnapshot:
      return "the target snapshot is not valid";
    case kErrSnapshotMissing:
      return "the snapshot does not exist";
    case kErrTargetMissing:
      return "the target does not exist";
    default:
      return {};
  }
}

}  // namespace VrelDR
