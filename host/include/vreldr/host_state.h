#pragma once

#include <string>
#include <vector>

#include "vrelcore/export.h"
#include "vreldr/error.h"

namespace VrelDR {

// What making a host would find.
struct VREL_API HostExamination {
  std::string state_dir;
  bool is_made = false;              // there is a host, and it is in order
  std::string node_id;               // that it has or would keep; empty when it would get a new one
  std::vector<std::string> traces;   // of a host, a line for each
  std::vector<std::string> damaged;  // files that would be moved aside
};

// Where this host keeps what it has to remember: its state directory, with the identity of the node
// and the records. They are made together, by Make or by the first call that makes something and
// finds no trace of a host: neither identity, records nor locks in the state directory, and nothing
// of a host on any volume of the configuration; a volume that cannot be asked counts as a trace.
// Beside a trace every call fails instead with kErrStore, and makes nothing.
class VREL_API HostState : public DRErrRecorder {
 public:
  // Puts the state directory, an absolute path that need not exist yet, into `dir`. False with
  // kErrConfig when the configuration cannot be read.
  bool GetDirectory(std::string& dir) const;

  // Looks at what there is of a host; changes nothing. False when that cannot be told.
  bool Examine(HostExamination& examination) const;
  // Makes the host in spite of traces. What is in order is kept; what is damaged is moved aside, to
  // the names that `moved` gets, and removed never. kErrExists when there is a host in order. After
  // an interruption the next call of any kind goes on with it.
  bool Make(std::string& nodeId, std::vector<std::string>& moved) const;
};

}  // namespace VrelDR
