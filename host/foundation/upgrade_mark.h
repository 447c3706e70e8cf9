#pragma once

#include <string>

#include "base/fd.h"
#include "base/status.h"

namespace VrelHost {

using VrelDR::Status;

// Says to other processes that records are being upgraded: with many snapshots that takes minutes
// in which nobody else can use them. A file beside them, locked as long as the object lives; one
// that a crash left says nothing.
class UpgradeMark {
 public:
  UpgradeMark() = default;
  ~UpgradeMark();
  UpgradeMark(const UpgradeMark&) = delete;
  UpgradeMark& operator=(const UpgradeMark&) = delete;

  // Waits for another process as long as writers of the records do; kErrBusy then.
  Status Take(const std::string& recordsPath);
  static bool IsHeld(const std::string& recordsPath);

 private:
  std::string path_;
  VrelDR::Fd file_;
};

// kErrBusy for whoever comes meanwhile.
Status BeingUpgraded(const std::string& recordsPath);

}  // namespace VrelHost
