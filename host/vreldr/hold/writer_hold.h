#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "base/status.h"
#include "hold/guardian.h"
#include "vreldr/quiesce.h"

namespace VrelDR {

// How a hold ended.
struct HoldEnd {
  std::chrono::milliseconds frozen_after{0};  // from its beginning until all stood still
  std::chrono::milliseconds held{0};          // from its beginning until all went on
  std::vector<std::string> troubles;          // what could not be thawed, a line for each
};

// Makes writers stand still, and lets them go on. Between Hold and Release the caller waits for
// nobody else: no log, no other program, no file of the writers' own that it would write to; any of
// them may be what stands still.
//
// The writers are frozen and thawed by a process of its own, the guardian, which thaws them when
// this process ends, whatever ends it, and when the deadline passes. It leaves this process'
// session and, where that is allowed, its control groups: what a service manager ends with a
// service is not the guardian then. Where it is not allowed it is ended with the service, and the
// writers stand still until somebody thaws them.
//
// Used in the order of its calls by one thread, once.
class WriterHold {
 public:
  explicit WriterHold(const QuiesceMeans& means) : means_(means) {}
  // Thaws everything.
  ~WriterHold() = default;

  // Looks at everything that can be told before anybody stands still, and opens it. kErrNotHeld
  // with the first fault when there are some.
  Status Check();
  // What Check found, a line for each.
  const std::vector<std::string>& GetFaults() const { return faults_; }

  // Makes all writers stand still, after a Check of its own when there was none. The deadline
  // begins here. When that fails, with what did not stand still, everything has been thawed.
  Status Hold();

  // Lets all go on and waits for that; `end` says how it was. Fails when they have not stood still
  // all the time: when the deadline had passed, the guardian was killed or somebody else had thawed
  // a control group. What was made meanwhile is of no single instant then. What cannot be thawed is
  // no failure of this call; it is told in `end`.
  Status Release(HoldEnd& end);

 private:
  void Add(const Status& status, HeldWriter writer);
  std::vector<std::string> FindTroubles() const;
  std::string WhyNotHeld() const;

  QuiesceMeans means_;
  bool is_checked_ = false;
  std::vector<std::string> faults_;
  std::vector<HeldWriter> writers_;  // outlive the guardian
  std::unique_ptr<Guardian> guardian_;
};

}  // namespace VrelDR
