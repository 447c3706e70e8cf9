#pragma once

#include <functional>
#include <string>

#include "tool_fixture.h"

namespace e2e {

// Waits until `condition` holds; a test failure when it does not in time.
void WaitFor(const std::string& what, const std::function<bool()>& condition);

// While it lives, programs send what the tool would send itself: those can be held.
class SentByPrograms {
 public:
  SentByPrograms();
  SentByPrograms(const SentByPrograms&) = delete;
  SentByPrograms& operator=(const SentByPrograms&) = delete;
  ~SentByPrograms();
};

// Holds the program that sends a snapshot for as long as it lives.
class PausedShipment {
 public:
  // Waits for a program that sends to `target`, or for any when that is empty.
  explicit PausedShipment(const Process& tool, const std::string& target = {});
  PausedShipment(const PausedShipment&) = delete;
  PausedShipment& operator=(const PausedShipment&) = delete;
  ~PausedShipment();

 private:
  int pid_ = 0;
};

}  // namespace e2e
