#pragma once

#include "base/status.h"

namespace VrelDR {

// Who writes to the targets of a cut, as far as the host was told who it is, and how they are held
// while the snapshots are made. One like this holds nobody.
class CutWriters {
 public:
  virtual ~CutWriters() = default;

  // Whether they could be held: asked before the cut has done anything. Not all cuts hold them; see
  // TargetCut.
  virtual Status Check() { return {}; }
  // From now on none of them writes. A failure holds nobody.
  virtual Status Hold() { return {}; }
  // They go on. Called once after each Hold that was good. A failure says that they were not held
  // all the time: the cut is thrown away.
  virtual Status Release() { return {}; }
  // Whether Hold holds anybody, and whether applications then have written their state before.
  virtual bool AreHeld() const { return false; }
  virtual bool AreConsistent() const { return false; }
};

}  // namespace VrelDR
