#pragma once

#include "vrelcore/export.h"

namespace VrelDR {

// Keeps the host open. As long as one lives, all calls of this library in the process read the
// configuration once, and each thread keeps one connection to the host's records and an engine of
// each volume that it has used; without one every call opens what it needs and closes it again. It
// changes nothing of what calls do or answer, but that a configuration that is changed, and an
// identity that a volume is given by another process, are seen by the next session only.
//
// A caller makes one for a piece of work, such as one command, and not for its own lifetime.
// Several may live at once, in any thread; the last one that goes closes everything, and no call
// may run then. A forked child has none. Only our own tool asks for it.
class VREL_API Session {
 public:
  Session();
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
};

}  // namespace VrelDR
