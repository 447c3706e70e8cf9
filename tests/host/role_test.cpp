#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "base/kill_point.h"
#include "engine_fixture.h"
#include "tree.h"

// Targets that are not to be written, and those that are again.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDR::Status;

class RoleTest : public EngineTest {
 protected:
  void Demote() {
    const Status status = A().Demote();
    ASSERT_TRUE(status.IsOk()) << status.message;
  }
  void Promote(const std::string& id) {
    const Status status = A().Promote(id);
    ASSERT_TRUE(status.IsOk()) << status.message;
  }
  void ExpectWritable() {
    const std::string path = A().TargetPath();
    EXPECT_EQ(chmod((path + "/plain").c_str(), 0600), 0);
    WriteFile(path + "/plain", "written");
    WriteFile(path + "/folder/new", "written");
    WriteFile(path + "/new", "written");
    EXPECT_TRUE(fs::remove(path + "/dangling"));
    EXPECT_GT(fs::remove_all(path + "/folder"), 0u);
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, RoleTest,
                         testing::Values("tmpfs-tmpfs", "ext4-tmpfs", "xfs-tmpfs", "btrfs-tmpfs"),
                         EngineTest::NameOf);

class FrozenRoleTest : public RoleTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, FrozenRoleTest,
                         testing::Values("ext4-tmpfs", "xfs-tmpfs", "btrfs-tmpfs"),
                         EngineTest::NameOf);

TEST_P(FrozenRoleTest, NobodyWritesToADemotedTarget) {
  const std::string path = A().TargetPath();
  MakeSampleTree(path);
  const auto tree = DescribeTree(path);
  for (int i = 0; i < 2; ++i) {
    Demote();
    EXPECT_EQ(open((path + "/plain").c_str(), O_WRONLY), -1);
    EXPECT_EQ(open((path + "/new").c_str(), O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_EQ(open((path + "/folder/below/new").c_str(), O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_NE(unlink((path + "/dangling").c_str()), 0);
    EXPECT_NE(chmod((path + "/plain").c_str(), 0777), 0);
    EXPECT_NE(rename((path + "/plain").c_str(), (path + "/renamed").c_str()), 0);
    ExpectTree(path, tree);
  }
}

TEST_P(RoleTest, APromotedTargetIsWritableWithTheBytesItHad) {
  const std::string path = A().TargetPath();
  MakeSampleTree(path);
  const auto tree = DescribeTree(path);
  Demote();
  for (int i = 0; i < 2; ++i) {
    Promote("");
    ExpectTree(path, tree);
  }
  ExpectWritable();
}

TEST_P(RoleTest, ATargetCanBePromotedAtASnapshot) {
  const std::string path = A().TargetPath();
  MakeSampleTree(path);
  const auto tree = DescribeTree(path);
  Take(A(), "s1");
  ExpectWritable();
  Demote();
  for (int i = 0; i < 2; ++i) {
    Promote("s1");
    ExpectTree(path, tree);
  }
  ExpectWritable();
  ExpectTree(A().SnapshotPath("s1"), tree);
  ExpectNothingIncoming(A());
}

TEST_P(RoleTest, APromotionThatIsKilledLeavesTheOldBytesOrTheNewOnes) {
  const std::string path = A().TargetPath();
  MakeSampleTree(path);
  const auto wanted = DescribeTree(path);
  Take(A(), "s1");
  for (const std::string_view step :
       {VrelDR::kRestoreCopied, VrelDR::kRestoreSynced, VrelDR::kRestoreExchanged,
        VrelDR::kRestoreDone, VrelDR::kPromoteDone}) {
    SCOPED_TRACE(step);
    WriteFile(path + "/plain", "something else");
    fs::remove_all(path + "/folder");
    Demote();
    const auto before = DescribeTree(path);
    ASSERT_EQ(RunInChild({{"VRELDR_KILL_POINT", std::string(step)}},
                         [&] { return A().Promote("s1").code; }),
              128 + SIGKILL);
    const bool isOld = step == VrelDR::kRestoreCopied || step == VrelDR::kRestoreSynced;
    auto found = DescribeTree(path);
    // The time of the directory itself is set last.
    if (step == VrelDR::kRestoreExchanged) found["."] = wanted.at(".");
    EXPECT_EQ(found == (isOld ? before : wanted), true);
    Promote("s1");
    ExpectTree(path, wanted);
    ExpectNothingIncoming(A());
  }
}

TEST_P(RoleTest, ADemotedTargetCanBeRestoredSnapshottedAndRemoved) {
  const std::string path = A().TargetPath();
  MakeSampleTree(path);
  const auto tree = DescribeTree(path);
  Demote();
  Take(A(), "s1");
  ExpectTree(A().SnapshotPath("s1"), tree);
  const Status restored = A().Restore("s1");
  EXPECT_TRUE(restored.IsOk()) << restored.message;
  ExpectTree(path, tree);
  Demote();
  EXPECT_TRUE(A().CleanUp().IsOk());
  EXPECT_TRUE(fs::exists(path));
  const Status removed = A().Remove();
  EXPECT_TRUE(removed.IsOk()) << removed.message;
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace host_test
