#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine_fixture.h"

namespace host_test {

using Tree = std::map<std::string, std::string>;

// What a watcher of a call says: to go on or not, and how long nothing may move.
class StrictWatcher : public VrelDR::Watcher {
 public:
  StrictWatcher(bool goesOn, std::chrono::milliseconds patience)
      : goes_on_(goesOn), patience_(patience) {}
  bool GoesOn() override { return goes_on_; }
  std::chrono::milliseconds GetPatience() const override { return patience_; }

 private:
  bool goes_on_;
  std::chrono::milliseconds patience_;
};

// Two volumes of engines that keep the same contract: what is true of every kind is tested by what
// the contract has alone. Both have an identity, which the engines expect. "source" on the first
// one works and has one of everything, "replica" on the second is attached to it.
class ContractTest : public EngineTest {
 protected:
  // Ways in which a volume is out of reach.
  enum class Cut { kMissing, kUnreachable };
  // Those that there are for this kind of volume.
  static std::vector<Cut> CutsOf(const Side& side);
  // The code with which every call fails then.
  static int CodeOf(Cut cut);
  static void CutOff(Side& side, Cut cut);
  static void CutBack(Side& side, Cut cut);

  // A step between which nothing may be lost. One that an engine does not have is not reached.
  using Steps = std::vector<std::string_view>;
  // Runs the call in a process of its own that ends at the step. False when it does not get there:
  // then it went through.
  static bool IsKilledAt(std::string_view step, const std::function<VrelDR::Status()>& call);

  void SetUp() override;
  void TearDown() override;

  // Gives a btrfs more room than tests that fill it want.
  static void Grow(const Side& side);

  static void ExpectGood(const VrelDR::Status& status);
  // A target on the side's volume at a place that its engine has prepared.
  static EngineTarget Prepare(const Side& side, const std::string& id, int type);
  static bool IsThere(const EngineTarget& target);
  // What anybody sees of the target's bytes, or of a snapshot that is whole.
  static Tree BytesOf(const EngineTarget& target);
  static Tree BytesOf(const EngineTarget& target, const std::string& snapId);
  // Writes files of the target, and takes one away.
  static void Write(const EngineTarget& target, const std::string& text);

  // Lets a shipment from A to B end when some of it has arrived.
  VrelDR::Status ShipHalf(const std::string& snapId);
  // The other programs that the engines of A and B use to move bytes hang until FullSpeed. They
  // write down who they are.
  void HangPrograms();
  // Whether none of those is left.
  bool HaveProgramsEnded() const;
  // Files that tell an engine "fake" to misbehave.
  static void Misbehave(const Side& side, const std::string& how, bool on);

 private:
  std::string PidFile() const;
};

}  // namespace host_test
