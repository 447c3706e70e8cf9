#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "vreldr/checker.h"
#include "vreldr/operation.h"
#include "vreldr/plan.h"
#include "vreldr/report.h"

namespace host_test {

using Tree = std::map<std::string, std::string>;

// The kinds of volume that a suite runs on: these file systems and, in the program that has it, the
// engine "fake".
std::vector<std::string> VolumeKinds(std::vector<std::string> fileSystems);

// A host with a second volume "v2", of the same kind as "v1".
class PlanTest : public HostTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::string SecondVolumePath() const { return Root() + "/v2"; }
  // Lets the second volume be written, or not.
  void LetSecondBeWritten(bool is) const;
  // Takes it away.
  void UnmountSecondVolume();
  // Lets a volume of the engine "fake" misbehave in a way of fake/misbehaviour.h, or no more.
  void Misbehave(const std::string& volumePath, const std::string& how, bool does) const;

  // What the disk tells, behind the host: the names of what is on the second volume beside our own
  // directory,
  std::set<std::string> NamesOnSecondVolume() const;
  // those of a target's snapshots,
  std::set<std::string> SnapshotsOnDisk(const std::string& targetId) const;
  // and where one of them is.
  std::string SnapshotDir(const std::string& targetId, const std::string& snapId) const;
  // Takes a snapshot's bytes away.
  void LoseBytes(const std::string& targetId, const std::string& snapId) const;
  // Expects that nothing is left of work on the target and of shipments to it.
  void ExpectNothingOnItsWay(const std::string& targetId) const;

  // Makes the share "a" on "v1" with one of everything in it, and a plan of it to "v2". The plan's
  // identifier.
  std::string MakeProtectedShare() const;
  // Makes a plan of a target to "v2" and expects that to work.
  static std::string MakePlan(const std::string& targetId, const std::string& copyId = {});
  static VrelDR::Operation::PlanLocalCreate Creation(const std::string& targetId,
                                                     const std::string& volume,
                                                     const std::string& copyId);

  // Expect the operation to work.
  static void ExpectRun(VrelDR::DROperation&& operation);
  static void ExpectSync(const std::string& planId);
  // What a group's switchover asks for.
  static Json::Value Stopping();
  // Expects it to be refused, and its check to say the same and change nothing.
  static void ExpectRefused(VrelDR::DROperation&& operation, int code,
                            const std::vector<std::string>& parts);

  static VrelDR::DRPlan Plan(const std::string& planId);
  static std::vector<std::string> PlansOf(const std::string& targetId);
  // The last snapshot that has arrived, as the plan tells.
  static std::string Last(const std::string& planId);
  static Tree Bytes(const std::string& targetId);
  static Tree BytesOf(const std::string& targetId, const std::string& snapId);
  // Writes a file into a target that must allow that.
  static void Change(const std::string& targetId, const std::string& text);
  // Whether the target's bytes can be changed; true where the system cannot refuse that.
  static bool IsWritable(const std::string& targetId);
  static bool CanRefuseWriting();

  // Expects that the plan is in normal state in this direction, its source can be written and has
  // `bytes`, and its replica cannot be written.
  void ExpectNormal(const std::string& planId, VrelDR::DRPlanDirection direction,
                    const Tree& bytes) const;
  void ExpectFailedOver(const std::string& planId, VrelDR::DRPlanDirection direction,
                        const Tree& bytes) const;
  // Expects that every snapshot of either side that the other side has too is the same.
  static void ExpectSameSnapshots(const std::string& planId);

 private:
  std::unique_ptr<MountedImage> second_;
};

}  // namespace host_test
