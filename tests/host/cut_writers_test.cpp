#include <gmock/gmock.h>

#include <filesystem>

#include "base/kill_point.h"
#include "host_fixture.h"
#include "target/target_cut.h"
#include "tree.h"

// Whoever writes to the targets of a cut is held while it is taken, and only then.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::CutGrade;
using VrelDR::Status;
using VrelDR::TargetCut;

// Writes down what is asked of it and what the host's records have of snapshots by then, and fails
// where it is told to.
class TestWriters : public VrelDR::CutWriters {
 public:
  explicit TestWriters(std::string failing = {}) : failing_(std::move(failing)) {}

  Status Check() override { return Note("check"); }
  Status Hold() override { return Note("hold"); }
  Status Release() override { return Note("release"); }
  bool AreHeld() const override { return true; }
  bool AreConsistent() const override { return areConsistent; }

  bool areConsistent = true;
  std::vector<std::string> calls;
  std::function<void(const std::string&)> look = [](const std::string&) {};

 private:
  Status Note(const std::string& call) {
    calls.push_back(call);
    look(call);
    return call == failing_ ? Status{VrelDR::kErrIo, call + " was to fail"} : Status();
  }

  std::string failing_;
};

class CutWritersTest : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const char* each : {"a", "b"}) {
      MakeShare(each);
      WriteFile(PathOf(each) + "/file", "before");
    }
  }

  static Status Prepare(TargetCut& cut, VrelDR::CutWriters& writers) {
    return cut.Prepare({"a", "b"}, writers);
  }
  // Both targets can be changed, and have nothing of a cut.
  void ExpectFree() const {
    for (const char* each : {"a", "b"}) {
      EXPECT_EQ(Take(each).cut_id, "");
      const std::string dir = VolumePath() + "/.vreldr/snapshots/" + each;
      EXPECT_EQ(static_cast<std::size_t>(std::distance(fs::directory_iterator(dir), {})),
                ListIds(each).size());
    }
    ExpectNoLeftovers();
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, CutWritersTest, testing::Values("ext4", "xfs", "btrfs"),
                         HostTest::NameOf);

TEST_P(CutWritersTest, TheyAreAskedBeforeAllAndHeldFromAfterTheRecordsUntilTheBytesAreThere) {
  TestWriters writers;
  // What is recorded goes to the log first.
  const std::string log = StateDir() + "/replica.db-wal";
  const auto recorded = [&] {
    return std::filesystem::exists(log) ? ReadFile(log) : std::string();
  };
  const std::string atFirst = recorded();
  std::string held;
  writers.look = [&](const std::string& call) {
    if (call == "check") {
      EXPECT_EQ(recorded(), atFirst);
    }
    if (call == "hold") held = recorded();
    if (call == "release") {
      EXPECT_EQ(recorded(), held);
    }
    // Nobody writes while they are held.
    WriteFile(PathOf("a") + "/file", call);
  };
  TargetCut cut(VrelDR::TheHost());
  const Status status = Prepare(cut, writers);
  ASSERT_TRUE(status.IsOk()) << status.message;
  EXPECT_THAT(writers.calls, ElementsAre("check", "hold", "release"));
  EXPECT_NE(held, atFirst) << "the snapshots were to be recorded by then";
  EXPECT_EQ(cut.GetInfo().grade, IsBtrfs() ? CutGrade::kOneInstant : CutGrade::kWritersHeld);
  EXPECT_TRUE(cut.GetInfo().is_app_consistent);
  EXPECT_GT(cut.GetInfo().held_ms, 0U);
  const auto taken = Take("a");
  EXPECT_EQ(taken.cut_id, cut.GetInfo().id);
  EXPECT_EQ(ReadFile(taken.path + "/file"), "hold");
}

TEST_P(CutWritersTest,
       TheyAreNotHeldForWhatIsOfOneInstantWithoutThatUnlessTheyAreToWriteTheirState) {
  TestWriters writers;
  writers.areConsistent = false;
  TargetCut cut(VrelDR::TheHost());
  const Status status = Prepare(cut, writers);
  ASSERT_TRUE(status.IsOk()) << status.message;
  if (IsBtrfs()) {
    EXPECT_THAT(writers.calls, ElementsAre("check"));
    EXPECT_EQ(cut.GetInfo().grade, CutGrade::kOneInstant);
    EXPECT_EQ(cut.GetInfo().held_ms, 0U);
  } else {
    EXPECT_THAT(writers.calls, ElementsAre("check", "hold", "release"));
    EXPECT_EQ(cut.GetInfo().grade, CutGrade::kWritersHeld);
  }
  EXPECT_FALSE(cut.GetInfo().is_app_consistent);
  EXPECT_EQ(Take("a").cut_id, cut.GetInfo().id);
}

TEST_P(CutWritersTest, TheyAreReleasedWhateverFailsAndTheirFailureLeavesNothing) {
  for (const char* failing : {"check", "hold", "release"}) {
    SCOPED_TRACE(failing);
    TestWriters writers(failing);
    TargetCut cut(VrelDR::TheHost());
    const Status status = Prepare(cut, writers);
    EXPECT_EQ(status.code, VrelDR::kErrIo);
    EXPECT_NE(status.message.find(failing), std::string::npos) << status.message;
    EXPECT_EQ(writers.calls.back(), failing);
    ExpectFree();
  }
  setenv("VRELDR_FAIL_POINT", "cut@b", 1);
  TestWriters writers;
  TargetCut cut(VrelDR::TheHost());
  EXPECT_EQ(Prepare(cut, writers).code, VrelDR::kErrIo);
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_THAT(writers.calls, ElementsAre("check", "hold", "release"));
  ExpectFree();
}

TEST_P(CutWritersTest, TargetsOfTwoFileSystemsHaveNoInstantInCommonUnlessWritersAreHeld) {
  fs::create_directory(Root() + "/v2");
  WriteFile(Root() + "/config.json", R"({"state_dir": ")" + StateDir() + R"(", "volumes": [)" +
                                         VolumeText("v1", VolumePath()) + ", " +
                                         VolumeText("v2", Root() + "/v2") + "]}");
  VrelDR::TargetSpec spec;
  spec.target = VrelDR::Target("far", VrelDR::kTargetShare);
  spec.volume = "v2";
  ASSERT_TRUE(VrelDR::TargetManager().Create(spec));
  for (const bool areHeld : {false, true}) {
    VrelDR::CutWriters nobody;
    TestWriters writers;
    TargetCut cut(VrelDR::TheHost());
    const Status status =
        cut.Prepare({"a", "far"}, areHeld ? static_cast<VrelDR::CutWriters&>(writers) : nobody);
    ASSERT_TRUE(status.IsOk()) << status.message;
    EXPECT_EQ(cut.GetInfo().grade, areHeld ? CutGrade::kWritersHeld : CutGrade::kNone);
    EXPECT_GT(cut.GetInfo().skew_ms, 0U);
    EXPECT_EQ(Take("far").cut_id, cut.GetInfo().id);
  }
}

}  // namespace
}  // namespace host_test
