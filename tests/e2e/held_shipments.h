#pragma once

#include <string>
#include <vector>

namespace e2e {

// Stands in for the program that sends snapshots of directory volumes, for as long as it lives: it
// notes of each replica when its shipment begins and ends, and waits before it begins for those
// that are held.
class HeldShipments {
 public:
  // Works in `dir`, which it makes.
  explicit HeldShipments(const std::string& dir);
  HeldShipments(const HeldShipments&) = delete;
  HeldShipments& operator=(const HeldShipments&) = delete;
  ~HeldShipments();

  void Hold(const std::string& replica);
  // Lets one that has begun, or is going to, go on.
  void LetGo(const std::string& replica);

  // "begin a-dr", "end a-dr", in their order.
  std::vector<std::string> Notes() const;
  // Waits until `note` is there; a test failure when it is not in time.
  void Await(const std::string& note) const;

 private:
  std::string PipeOf(const std::string& replica) const { return dir_ + "/hold/" + replica; }

  std::string dir_;
  std::string path_before_;
  std::vector<int> pipes_;  // kept open, so that nobody waits for somebody to open them
};

}  // namespace e2e
