#pragma once

#include <string>

#include "config/quoted.h"
#include "vreldr/error.h"

namespace VrelDR {

// How an internal call ended: 0 and no message, or a code of ErrCode and one line for people.
struct [[nodiscard]] Status {
  int code = kErrNone;
  std::string message;

  bool IsOk() const { return code == kErrNone; }
};

// The status of a system call that failed with `error` while it was about `what` (a path, or
// empty).
Status StatusOfErrno(int error, const std::string& what);

// `status` with "`context`: " put before its message; a good one stays as it is.
Status InContext(const std::string& context, Status status);

using VrelHost::Quoted;

}  // namespace VrelDR
