#pragma once

#include <string>

#include "vrelcore/export.h"
#include "vreldrcore/err_recorder.h"

namespace VrelDR {

// The codes of the replication library. Callers store and compare them: never change a value.
enum ErrCode : int {
  kErrNone = 0,
  kErrBadArgument = 401,  // an argument is empty or not allowed
  kErrStore = 404,        // there is no host in order, or its records could not be read or written
  kErrNotRun = 407,       // the operation has not run to its end
  kErrConfig = 410,       // the configuration is missing, unreadable or wrong
  kErrVolumeMissing = 411,    // no such volume, or it is out of reach: gone, or another one
  kErrNoSpace = 412,          // the volume is full
  kErrReadOnly = 413,         // the volume cannot be written
  kErrIo = 414,               // reading or writing failed otherwise
  kErrExists = 415,           // something of that name is there already
  kErrBusy = 416,             // somebody works on the target or the plan, or has the records
  kErrStopped = 417,          // ended because somebody asked for it
  kErrLocked = 418,           // a retention lock, or a plan, holds it
  kErrUnsupported = 419,      // this host, or the engine of the volume, cannot do that
  kErrUnreachable = 420,      // a volume does not answer; what is there could not be found out
  kErrInUse = 421,            // somebody has it open; see target_users.h
  kErrNotHeld = 422,          // the writers of targets could not be held
  kErrPlanMissing = 441,      // the plan does not exist
  kErrPlanState = 442,        // the plan's state does not allow it
  kErrBadSnapshot = 621,      // the target snapshot is not valid
  kErrSnapshotMissing = 622,  // the snapshot, or a part of it, does not exist
  kErrTargetMissing = 634,    // the target does not exist
};

// An error recorder whose codes have texts.
class VREL_API DRErrRecorder : public VrelDRCore::ErrRecorder {
 public:
  std::string GetErrCodeStr(int code) const override;
};

}  // namespace VrelDR
