#pragma once

#include <string>

#include "vrelcore/export.h"
#include "vreldr/error.h"

namespace VrelDR {

// Where this host keeps what it has to remember.
class VREL_API HostState : public DRErrRecorder {
 public:
  // Puts the state directory, an absolute path that need not exist yet, into `dir`. False with
  // kErrConfig when the configuration cannot be read.
  bool GetDirectory(std::string& dir) const;
};

}  // namespace VrelDR
