#pragma once

#include <chrono>
#include <cstdint>

namespace VrelDR {

// Who watches a call of an engine or a link: how the call tells how far it is, learns that it shall
// end, and how long it may make no progress. One like this watches over nothing but the time.
class Watcher {
 public:
  virtual ~Watcher() = default;
  // What a shipment has done so far: `done` of `total` bytes have been looked at, `sent` of them
  // were really sent. Called several times a second while a shipment runs.
  virtual void Tell(std::uint64_t /*done*/, std::uint64_t /*total*/, std::uint64_t /*sent*/) {}
  // Whether to go on. A call asks between its steps, and at least four times a second while a
  // program runs for it; told not to, it ends with kErrStopped.
  virtual bool GoesOn() { return true; }
  // After this time without progress a call ends with kErrUnreachable. It is looked at where GoesOn
  // is asked: a system call that the kernel does not come back from holds the call all the same.
  virtual std::chrono::milliseconds GetPatience() const { return std::chrono::minutes(10); }
};

}  // namespace VrelDR
