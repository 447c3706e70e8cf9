#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "disks.h"
#include "judge.h"
#include "step.h"

namespace torture {

// What the environment asks for; each has a value for the short run.
//   TORTURE_SEED     where the random choices start, printed by every test; 1 when it is not set,
//   so
//                    that the short run of one state of the sources is the same every time
//   TORTURE_COUNT    how many cuts, or failing calls, each test makes
//   TORTURE_SECONDS  the time after which a test ends although it has not made them all
unsigned AskedSeed();
int AskedCount(int ofShortRun);
std::chrono::seconds AskedTime(int ofShortRun);

// A host on disks of its own: a layout and a file system, as "OneDisk_ext4".
using Place = std::pair<Layout, std::string>;
std::string NameOfPlace(const testing::TestParamInfo<Place>& place);

// The tests share the way in which a host is made, runs, is cut and is looked at.
class TortureTest : public testing::TestWithParam<Place> {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The targets "a" (a share) and "b" (a lun) on "v1" in the group "g", on empty disks.
  void StartHost();
  // Writes the next version to every target that works and is in the main group, and says so in
  // `sight`. "" or what did not work.
  std::string WriteAll(Sight& sight, bool isSynced);
  // Looks at the running host.
  static Sight See() { return Look(); }

  // Runs a step to its end, and as often as it takes where it is interrupted. Expects it to keep
  // what it promises. What is seen then.
  Sight Finish(const Step& step, const Sight& before, const std::string& about);

  // Cuts the power of the running host. The cut is looked at by LookAtCuts.
  void Cut(const Moment& moment);
  // Gives up the cuts that were made and not looked at.
  void ForgetCuts();
  // Of all the cuts that were made of `step`, tells what it led to.
  void Complete(const Sight& after);
  // Looks at every cut: takes the live disks away, puts the cut in place, judges, runs the
  // interrupted step again, judges, and goes on to live: syncs, fails over, comes back. Gives up
  // those for which no time is left.
  void LookAtCuts();
  // The faults that were found, each with the cut at which it was seen.
  const std::vector<std::string>& Faults() const { return faults_; }

  Disks& GetDisks() { return *disks_; }
  std::mt19937& Random() { return random_; }
  std::string Imports() const { return root_ + "/imports"; }
  int& Version() { return version_; }
  int Looked() const { return looked_; }
  std::set<std::string>& Unsynced() { return unsynced_; }
  bool IsOver() const { return std::chrono::steady_clock::now() > end_; }
  void Within(std::chrono::seconds time) { end_ = std::chrono::steady_clock::now() + time; }
  // Expects "".
  static void Do(const std::string& why) { ASSERT_EQ(why, ""); }

 private:
  void LookAtCut(const Moment& moment);
  void LiveOn(const Sight& sight, std::vector<std::string>& faults);
  std::string Run(const Step& step, const Sight& before, Sight& now);

  std::string root_;
  std::unique_ptr<Disks> disks_;
  std::mt19937 random_;
  std::chrono::steady_clock::time_point end_;
  int version_ = 0;
  int looked_ = 0;
  int cuts_ = 0;
  std::set<std::string> unsynced_;
  std::vector<Moment> moments_;
  std::size_t complete_ = 0;  // how many of them know what came after
  std::vector<std::string> faults_;
};

}  // namespace torture
