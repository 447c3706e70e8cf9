#pragma once

#include <exception>
#include <utility>

#include "base/status.h"
#include "vreldrcore/err_recorder.h"

namespace VrelDR {

// The one place where the library's inside meets its callers: runs `body`, which returns a Status,
// and records how it ended. Nothing thrown in `body` gets past it. True when it ended well.
template <class Body>
bool RunAndRecord(const VrelDRCore::ErrRecorder& recorder, Body&& body) noexcept {
  try {
    const Status status = std::forward<Body>(body)();
    recorder.SetErr(status.code, status.IsOk() ? Json::Value() : Json::Value(status.message));
    return status.IsOk();
  } catch (const std::exception&) {  // out of memory is all that the inside lets through
    recorder.SetErr(kErrIo);
    return false;
  }
}

}  // namespace VrelDR
