#include "contract_rig.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "fake/misbehaviour.h"
#include "tree.h"

namespace host_test {

namespace fs = std::filesystem;
using VrelDR::Status;

std::vector<ContractTest::Cut> ContractTest::CutsOf(const Side& side) {
  // What the system does about a directory is not to be kept from answering.
  if (!side.IsFake()) return {Cut::kMissing};
  return {Cut::kMissing, Cut::kUnreachable};
}

int ContractTest::CodeOf(Cut cut) {
  return cut == Cut::kMissing ? VrelDR::kErrVolumeMissing : VrelDR::kErrUnreachable;
}

void ContractTest::CutOff(Side& side, Cut cut) {
  if (cut == Cut::kUnreachable) {
    Misbehave(side, VrelDR::Fake::kUnreachable, true);
  } else if (side.IsFake()) {
    fs::rename(side.path, side.path + " away");
  } else {
    ASSERT_TRUE(side.image->Unmount());
  }
}

void ContractTest::CutBack(Side& side, Cut cut) {
  if (cut == Cut::kUnreachable) {
    Misbehave(side, VrelDR::Fake::kUnreachable, false);
  } else if (side.IsFake()) {
    fs::rename(side.path + " away", side.path);
  } else {
    ASSERT_TRUE(side.image->Mount());
  }
}

bool ContractTest::IsKilledAt(std::string_view step, const std::function<Status()>& call) {
  const int code =
      RunInChild({{"VRELDR_KILL_POINT", std::string(step)}}, [&] { return call().IsOk() ? 0 : 1; });
  if (code == 128 + SIGKILL) return true;
  EXPECT_EQ(code, 0) << step;
  return false;
}

void ContractTest::SetUp() {
  EngineTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) return;
  for (Side* side : {&A(), &B()}) {
    VrelDR::Watcher watcher;
    VrelDR::VolumeSight sight;
    ExpectGood(side->engine->Look(sight, watcher));
    side->identity = {"node", side->config.name, "id of " + side->config.name, sight.file_system};
    ExpectGood(side->engine->Mark(*side->identity, false, watcher));
    side->engine->Expect(*side->identity);
  }
  MakeOddTree(A().TargetPath());
  ExpectGood(B().Demote());
  VrelDR::Watcher watcher;
  ExpectGood(LinkOf(A(), B())->Attach(A().place, B().place, watcher));
}

void ContractTest::TearDown() {
  unsetenv("VRELDR_FAIL_POINT");
  EngineTest::TearDown();
}

void ContractTest::Grow(const Side& side) {
  fs::resize_file(side.image->GetImage(), std::uint64_t{2} << 30);
  const std::string refresh = "losetup -c $(findmnt -no SOURCE '" + side.path + "')";
  ASSERT_EQ(RunProgram({"sh", "-c", refresh}), 0);
  ASSERT_EQ(RunProgram({"btrfs", "filesystem", "resize", "max", side.path}), 0);
}

void ContractTest::ExpectGood(const Status& status) {
  EXPECT_TRUE(status.IsOk()) << status.code << " " << status.message;
}

EngineTarget ContractTest::Prepare(const Side& side, const std::string& id, int type) {
  EngineTarget target{side.engine, {id, type, {}}};
  VrelDR::Watcher watcher;
  ExpectGood(side.engine->PreparePlace({id, type}, target.place.locator, watcher));
  return target;
}

bool ContractTest::IsThere(const EngineTarget& target) {
  VrelDR::Watcher watcher;
  bool found = false;
  ExpectGood(target.engine->FindTarget(target.place, found, watcher));
  return found;
}

Tree ContractTest::BytesOf(const EngineTarget& target) {
  EXPECT_TRUE(IsThere(target));
  return DescribeTree(target.TargetPath());
}

Tree ContractTest::BytesOf(const EngineTarget& target, const std::string& snapId) {
  EXPECT_EQ(target.Snapshots().count(snapId), 1U) << snapId;
  return DescribeTree(target.SnapshotPath(snapId));
}

void ContractTest::Write(const EngineTarget& target, const std::string& text) {
  const std::string path = target.TargetPath();
  WriteFile(path + "/plain", text);
  WriteFile(path + "/new " + text, text);
  fs::remove(path + "/dangling");
  ASSERT_EQ(ReadFile(path + "/plain"), text);
}

Status ContractTest::ShipHalf(const std::string& snapId) {
  const std::string point = "ship.middle@" + B().place.id;
  setenv("VRELDR_FAIL_POINT", point.c_str(), 1);
  VrelDR::Watcher watcher;
  Status status = TryShip(A(), snapId, "", B(), watcher);
  unsetenv("VRELDR_FAIL_POINT");
  return status;
}

std::string ContractTest::PidFile() const {
  return fs::path(A().path).parent_path() / "pids";
}

void ContractTest::HangPrograms() {
  for (const char* program : {"rsync", "btrfs", "cp"}) {
    UseProgram(program, "echo $$ >>'" + PidFile() + "'\nexec /bin/sleep 1000\n");
  }
}

bool ContractTest::HaveProgramsEnded() const {
  std::ifstream pids(PidFile());
  int count = 0;
  bool have = true;
  for (pid_t pid = 0; pids >> pid; ++count) have = have && kill(pid, 0) == -1 && errno == ESRCH;
  EXPECT_GE(count, 1) << "none was started";
  return have;
}

void ContractTest::Misbehave(const Side& side, const std::string& how, bool on) {
  const fs::path file = fs::path(side.path) / ".fake" / how;
  if (on) {
    WriteFile(file, "");
  } else {
    fs::remove(file);
  }
}

}  // namespace host_test
