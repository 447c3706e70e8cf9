#include "plan_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tree.h"
#include "vreldr/host_state.h"
#include "vreldr/volume.h"

namespace host_test {

namespace fs = std::filesystem;
using VrelDR::TargetOperation;

void PlanTest::SetUp() {
  HostTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) return;
  fs::create_directory(SecondVolumePath());
  if (IsOnImage()) {
    std::string why;
    second_ = std::make_unique<MountedImage>(GetParam(), SecondVolumePath(), why);
    ASSERT_TRUE(second_->IsMounted()) << why;
  }
  WriteFile(Root() + "/config.json", R"({"state_dir": ")" + StateDir() + R"(", "volumes": [)" +
                                         VolumeText("v1", VolumePath()) + ", " +
                                         VolumeText("v2", SecondVolumePath()) + "]}");
  if (!IsFake()) return;
  // A volume that is no directory cannot be asked for traces of a host beforehand.
  std::string nodeId;
  std::vector<std::string> moved;
  const VrelDR::HostState state;
  ASSERT_TRUE(state.Make(nodeId, moved)) << state.GetErr();
}

void PlanTest::TearDown() {
  second_.reset();
  HostTest::TearDown();
}

std::vector<std::string> VolumeKinds(std::vector<std::string> fileSystems) {
#ifdef VRELDR_TEST_WITH_FAKE
  fileSystems.emplace_back("fake");
#endif
  return fileSystems;
}

void PlanTest::Misbehave(const std::string& volumePath, const std::string& how, bool does) const {
  ASSERT_TRUE(IsFake());
  fs::create_directories(volumePath + "/.fake");
  if (does) {
    WriteFile(volumePath + "/.fake/" + how, "");
  } else {
    fs::remove(volumePath + "/.fake/" + how);
  }
}

void PlanTest::LetSecondBeWritten(bool is) const {
  if (IsFake()) {
    Misbehave(SecondVolumePath(), "read_only", !is);
  } else {
    ASSERT_TRUE(second_->Remount(is ? "rw" : "ro"));
  }
}

void PlanTest::UnmountSecondVolume() {
  second_.reset();
  if (IsFake()) fs::rename(SecondVolumePath(), SecondVolumePath() + " away");
}

std::set<std::string> PlanTest::NamesOnSecondVolume() const {
  std::set<std::string> names;
  for (const auto& each : fs::directory_iterator(SecondVolumePath())) {
    const std::string name = each.path().filename();
    if (name.front() != '.' && name != "lost+found") names.insert(name);
  }
  return names;
}

std::string PlanTest::SnapshotDir(const std::string& targetId, const std::string& snapId) const {
  const fs::path target = PathOf(targetId);
  return IsFake() ? target.parent_path() / "snapshots" / snapId
                  : target.parent_path() / ".vreldr/snapshots" / targetId / snapId;
}

std::set<std::string> PlanTest::SnapshotsOnDisk(const std::string& targetId) const {
  std::set<std::string> names;
  for (const auto& each : fs::directory_iterator(SnapshotDir(targetId, {}))) {
    names.insert(each.path().filename());
  }
  return names;
}

void PlanTest::LoseBytes(const std::string& targetId, const std::string& snapId) const {
  const std::string dir = SnapshotDir(targetId, snapId);
  ASSERT_TRUE(fs::exists(dir));
  if (IsBtrfs()) {
    EXPECT_EQ(RunProgram({"btrfs", "subvolume", "delete", dir}), 0);
  } else {
    RunProgram({"chattr", "-R", "-i", dir});
    fs::remove_all(dir);
  }
  ASSERT_FALSE(fs::exists(dir));
}

void PlanTest::ExpectNothingOnItsWay(const std::string& targetId) const {
  const fs::path volume = fs::path(PathOf(targetId)).parent_path();
  if (!IsFake()) {
    for (const char* area : {"incoming", "tmp"}) {
      const fs::path dir = volume / ".vreldr" / area / targetId;
      EXPECT_TRUE(!fs::exists(dir) || fs::is_empty(dir)) << dir;
    }
    return;
  }
  const fs::path snapshots = volume / "snapshots";  // the target's own directory
  EXPECT_FALSE(fs::exists(volume / "work"));
  if (!fs::exists(snapshots)) return;
  for (const auto& each : fs::directory_iterator(snapshots)) {
    EXPECT_TRUE(fs::exists(each.path() / "whole")) << each.path();
  }
}

std::string PlanTest::MakeProtectedShare() const {
  MakeShare("a");
  MakeSampleTree(PathOf("a"));
  return MakePlan("a");
}

VrelDR::Operation::PlanLocalCreate PlanTest::Creation(const std::string& targetId,
                                                      const std::string& volume,
                                                      const std::string& copyId) {
  VrelDR::DRPlan plan;
  plan.SetSolutionType(VrelDR::kSolutionGroup);
  plan.SetProtectedTargetType(1);
  plan.SetScheduleMode(VrelDR::kScheduleAsyncGroup);
  plan.SetMainSite("this node");
  plan.SetDRSite("this node");
  plan.SetStatus(VrelDR::kPlanNormal);
  plan.SetProtectedTargetId(targetId);
  VrelDR::PlanRemoteConn source;
  VrelDR::PlanRemoteConn destination;
  VrelDR::Operation::PlanCreateBase::GetLocalReplicaConns(volume, source, destination);
  VrelDR::AsyncSchedulePolicy schedule;
  schedule.SetDisabled();
  return {plan, volume, copyId, source, destination, schedule};
}

std::string PlanTest::MakePlan(const std::string& targetId, const std::string& copyId) {
  const std::vector<std::string> before = PlansOf(targetId);
  ExpectRun(Creation(targetId, "v2", copyId));
  const std::vector<std::string> after = PlansOf(targetId);
  EXPECT_EQ(after.size(), before.size() + 1);
  return after.empty() ? std::string() : after.back();
}

void PlanTest::ExpectRun(VrelDR::DROperation&& operation) {
  EXPECT_TRUE(operation.Run(true)) << operation.GetErr();
  EXPECT_TRUE(operation.Run(false)) << operation.GetErr();
  EXPECT_EQ(operation.GetErrCode(), 0);
}

void PlanTest::ExpectSync(const std::string& planId) {
  VrelDR::DataSyncParam param;
  param.with_pending = true;
  ExpectRun(VrelDR::Operation::PlanSync(planId, param));
}

Json::Value PlanTest::Stopping() {
  VrelDR::DataSyncParam param;
  param.with_pending = true;
  param.stop_source = true;
  return param.ToJson();
}

void PlanTest::ExpectRefused(VrelDR::DROperation&& operation, int code,
                             const std::vector<std::string>& parts) {
  EXPECT_FALSE(operation.Run(true));
  ExpectError(operation, code, parts);
  const Json::Value checked = operation.GetErr();
  EXPECT_FALSE(operation.Run(false));
  EXPECT_EQ(operation.GetErr(), checked);
}

VrelDR::DRPlan PlanTest::Plan(const std::string& planId) {
  VrelDR::DRPlan plan;
  EXPECT_EQ(VrelDR::PlanAPI::GetPlan(planId, plan), 0);
  return plan;
}

std::vector<std::string> PlanTest::PlansOf(const std::string& targetId) {
  std::vector<VrelDR::DRPlan> plans;
  EXPECT_TRUE(VrelDR::Utils::SelectPlans(VrelDR::kTargetLun, targetId, plans));
  std::vector<std::string> ids;
  for (const VrelDR::DRPlan& each : plans) ids.push_back(each.GetPlanId());
  return ids;
}

std::string PlanTest::Last(const std::string& planId) {
  VrelDR::RetentionLockReport report;
  const VrelDR::RetentionLockReporter reporter(planId);
  EXPECT_TRUE(reporter.ReadReport(report)) << reporter.GetErr();
  return report.GetLastSnapshot();
}

Tree PlanTest::Bytes(const std::string& targetId) {
  return DescribeTree(PathOf(targetId));
}

Tree PlanTest::BytesOf(const std::string& targetId, const std::string& snapId) {
  const auto snapshot = TargetOperation(0, targetId).GetSnapshot(snapId);
  EXPECT_EQ(snapshot.snap_id, snapId) << targetId;
  return DescribeTree(snapshot.path);
}

void PlanTest::Change(const std::string& targetId, const std::string& text) {
  WriteFile(PathOf(targetId) + "/changed", text);
  ASSERT_EQ(ReadFile(PathOf(targetId) + "/changed"), text);
}

bool PlanTest::IsWritable(const std::string& targetId) {
  const std::string path = PathOf(targetId);
  const std::string probe = path + "/probe";
  struct stat before;
  EXPECT_EQ(stat(path.c_str(), &before), 0);
  const int fd = open(probe.c_str(), O_WRONLY | O_CREAT, 0600);
  if (fd == -1) return false;
  close(fd);
  const bool removed = unlink(probe.c_str()) == 0;
  // What is compared with it later is to be as if nobody had tried.
  const struct timespec times[] = {before.st_atim, before.st_mtim};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  return removed;
}

bool PlanTest::CanRefuseWriting() {
  std::vector<VrelDR::VolumeInfo> volumes;
  EXPECT_TRUE(VrelDR::VolumeManager().List(volumes));
  return !volumes.empty() && volumes[0].is_immutable;
}

void PlanTest::ExpectNormal(const std::string& planId, VrelDR::DRPlanDirection direction,
                            const Tree& bytes) const {
  const VrelDR::DRPlan plan = Plan(planId);
  EXPECT_EQ(plan.GetStatus(), VrelDR::kPlanNormal);
  EXPECT_EQ(plan.GetDirection(), direction);
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(plan), VrelDR::kSiteNormal);
  EXPECT_EQ(Bytes(plan.GetSourceTargetId()), bytes);
  EXPECT_EQ(access(PathOf(plan.GetSourceTargetId()).c_str(), W_OK), 0);
  EXPECT_EQ(IsWritable(plan.GetReplicaTargetId()), !CanRefuseWriting());
}

void PlanTest::ExpectFailedOver(const std::string& planId, VrelDR::DRPlanDirection direction,
                                const Tree& bytes) const {
  const VrelDR::DRPlan plan = Plan(planId);
  EXPECT_EQ(plan.GetStatus(), VrelDR::kPlanFailover);
  EXPECT_EQ(plan.GetDirection(), direction);
  EXPECT_EQ(VrelDR::Utils::GetPlanLocalSiteStatus(plan), VrelDR::kSiteFailover);
  EXPECT_EQ(Bytes(plan.GetReplicaTargetId()), bytes);
  EXPECT_EQ(access(PathOf(plan.GetReplicaTargetId()).c_str(), W_OK), 0);
  EXPECT_EQ(IsWritable(plan.GetSourceTargetId()), !CanRefuseWriting());
}

void PlanTest::ExpectSameSnapshots(const std::string& planId) {
  const VrelDR::DRPlan plan = Plan(planId);
  const TargetOperation source(0, plan.GetSourceTargetId());
  const TargetOperation replica(0, plan.GetReplicaTargetId());
  for (const auto& each : source.ListSnapshots()) {
    const auto other = replica.GetSnapshot(each.snap_id);
    if (other.snap_id.empty()) continue;
    EXPECT_EQ(other.create_time, each.create_time);
    EXPECT_EQ(other.meta.description, each.meta.description);
    EXPECT_EQ(other.meta.taken_by, each.meta.taken_by);
    EXPECT_EQ(DescribeTree(other.path), DescribeTree(each.path));
  }
}

}  // namespace host_test
