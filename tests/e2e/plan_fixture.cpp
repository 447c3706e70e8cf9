#include "plan_fixture.h"

#include <sys/mount.h>
#include <vreldr/target_operation.h>

namespace e2e {

namespace {

namespace fs = std::filesystem;

const std::vector<std::string>& Targets() {
  static const std::vector<std::string> targets{"lun", "share", "guest"};
  return targets;
}

std::map<std::string, std::string> PathsOf(const std::map<std::string, std::string>& all,
                                           const std::string& suffix) {
  std::map<std::string, std::string> paths;
  for (const std::string& target : Targets()) paths[target] = all.at(target + suffix);
  return paths;
}

// Files in place, files gone and new ones, all of it other bytes for another number.
void Change(const std::map<std::string, std::string>& paths, int number) {
  const std::string text = "change " + std::to_string(number);
  host_test::WriteFile(paths.at("lun"), std::string(90000, 'l') + text);
  host_test::WriteFile(paths.at("share") + "/one", text);
  host_test::WriteFile(paths.at("share") + "/new-" + std::to_string(number % 2), text);
  fs::remove(paths.at("share") + "/new-" + std::to_string((number + 1) % 2));
  host_test::WriteFile(paths.at("guest") + "/guest.img", std::string(60000, 'g') + text);
}

std::vector<std::string> StatesOf(const std::string& state, const std::string& suffix) {
  std::vector<std::string> states;
  for (const std::string& target : Targets()) states.push_back(state + target + suffix);
  return states;
}

}  // namespace

void PlanTest::SetUp() {
  FileSystemsTest::SetUp();
  if (IsSkipped() || GetParam() == "directory") return;
  std::string why;
  image_ = std::make_unique<host_test::MountedImage>(GetParam(), VolumePath("v2"), why);
  if (!image_->IsMounted()) GTEST_SKIP() << why;
}

void PlanTest::TearDown() {
  image_.reset();
  FileSystemsTest::TearDown();
}

void PlanTest::MakeProtected() {
  MakeGroup();
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  RunWell({"sync", "g"});
}

TargetContents PlanTest::MainContents() {
  return ReadContents(PathsOf(TargetPaths(), ""));
}
TargetContents PlanTest::CopyContents() {
  return ReadContents(PathsOf(TargetPaths(), "-dr"));
}
TargetContents PlanTest::LastArrivedContents() {
  std::map<std::string, std::string> paths;
  const Json::Value document = RunWell({"status", "g", "--json"}).Json();
  for (const Json::Value& each : document["targets"]) {
    const std::string target = each["target_id"].asString();
    const VrelDR::TargetOperation copy(0, target + "-dr");
    paths[target] = copy.GetSnapshot(each["last_snap_id"].asString()).path;
    EXPECT_NE(paths[target], "") << target;
  }
  return ReadContents(paths);
}
// The directory of a volume that is mounted stays when it goes, and nobody is to take it for one.
void PlanTest::LoseVolume(const std::string& volume) const {
  if (GetParam() != "directory") umount2(VolumePath(volume).c_str(), MNT_DETACH);
  fs::rename(VolumePath(volume), Root() + "/" + volume + "-away");
}
void PlanTest::BringVolumeBack(const std::string& volume) const {
  fs::rename(Root() + "/" + volume + "-away", VolumePath(volume));
  if (GetParam() == "directory") return;
  EXPECT_EQ(host_test::RunProgram(
                {"mount", "-o", "loop", VolumePath(volume) + ".img", VolumePath(volume)}),
            0);
}
void PlanTest::ChangeMain() {
  Change(PathsOf(TargetPaths(), ""), ++changes_);
}
void PlanTest::ChangeCopies() {
  Change(PathsOf(TargetPaths(), "-dr"), ++changes_);
}

std::vector<std::string> PlanTest::States() {
  std::vector<std::string> states;
  const Json::Value document = RunWell({"status", "g", "--json"}).Json();
  for (const Json::Value& each : document["targets"]) {
    states.push_back(each["state"].asString() + " " + each["working_target_id"].asString());
  }
  return states;
}
std::vector<std::string> PlanTest::AllProtected() {
  return StatesOf("protected ", "");
}
std::vector<std::string> PlanTest::AllTurned() {
  return StatesOf("protected ", "-dr");
}
std::vector<std::string> PlanTest::AllFailedOver() {
  return StatesOf("failed over ", "-dr");
}
std::vector<std::string> PlanTest::AllUnprotected() {
  return {"unprotected ", "unprotected ", "unprotected "};
}

bool PlanTest::RunKilledAt(const std::string& step, const std::vector<std::string>& words) {
  setenv("VRELDR_KILL_POINT", step.c_str(), 1);
  const Result result = Run(words);
  unsetenv("VRELDR_KILL_POINT");
  if (result.code == 128 + SIGKILL) return true;
  EXPECT_EQ(result.code, kDone) << step << "\n" << result.err;
  return false;
}

Result PlanTest::RunFailingAt(const std::string& point, const std::vector<std::string>& words) {
  setenv("VRELDR_FAIL_POINT", point.c_str(), 1);
  Result result = Run(words);
  unsetenv("VRELDR_FAIL_POINT");
  return result;
}

void PlanTest::ExpectSameSnapshots() {
  for (const std::string& target : Targets()) {
    std::map<std::string, std::string> main;
    for (const auto& each : VrelDR::TargetOperation(0, target).ListSnapshots()) {
      main[each.snap_id] = each.path;
    }
    for (const auto& each : VrelDR::TargetOperation(0, target + "-dr").ListSnapshots()) {
      const auto found = main.find(each.snap_id);
      if (found == main.end()) continue;
      EXPECT_EQ(ReadContents({{target, found->second}}), ReadContents({{target, each.path}}))
          << target << " " << each.snap_id;
    }
  }
}

}  // namespace e2e
