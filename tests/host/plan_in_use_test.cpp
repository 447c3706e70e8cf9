#include <fcntl.h>
#include <gmock/gmock.h>

#include "holder.h"
#include "plan_fixture.h"
#include "tree.h"
#include "vreldr/target_users.h"

// Somebody has a copy of a plan open.

namespace host_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using VrelDR::Operation::PlanSwitchover;

class PlanInUseTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    if (!IsSkipped() && geteuid() != 0) GTEST_SKIP() << "looking into other processes needs root";
  }
  static bool Open(const std::string& path, int flags) { return open(path.c_str(), flags) != -1; }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanInUseTest,
                         testing::ValuesIn(VolumeKinds({"ext4", "xfs", "btrfs"})),
                         HostTest::NameOf);

TEST_P(PlanInUseTest, ASwitchoverEndsWhenTheQuietSourceCanStillBeWrittenAndAllIsAsBefore) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  Change("a", "before");
  const Tree bytes = Bytes("a");
  {
    const Holder writer(
        [] { return Open(PathOf("a") + "/changed", O_CREAT | O_WRONLY | O_APPEND); });
    const Tree opened = Bytes("a");
    PlanSwitchover refused(planId, {}, Stopping());
    EXPECT_FALSE(refused.Run(false));
    ExpectError(refused, VrelDR::kErrInUse,
                {"target \"a\" is in use", "is open for writing by",
                 "(pid " + std::to_string(writer.GetPid()) + ")"});
    ExpectNormal(planId, VrelDR::kMainToDR, opened);
  }
  // Who only reads sees no change.
  const Holder reader([] { return Open(PathOf("a") + "/plain", O_RDONLY); });
  const Tree now = Bytes("a");
  ExpectRun(PlanSwitchover(planId, {}, Stopping()));
  ExpectNormal(planId, VrelDR::kDRToMain, now);
}

TEST_P(PlanInUseTest, WhoSaysSoGoesOnAndTheJournalTellsOverWhom) {
  const std::string planId = MakeProtectedShare();
  ExpectSync(planId);
  const Holder writer([] { return Open(PathOf("a") + "/plain", O_WRONLY); });
  {
    const VrelDR::InUseAllowed allowed;
    ExpectRun(PlanSwitchover(planId, {}, Stopping()));
  }
  EXPECT_FALSE(VrelDR::InUseAllowed::IsSaid());
  VrelDR::SiteOPJournal journal;
  ASSERT_TRUE(VrelDR::SiteOPJournalReporter(planId).ReadReport(journal));
  EXPECT_THAT(journal.GetMessage(), HasSubstr("(pid " + std::to_string(writer.GetPid()) + ")"));
}

TEST_P(PlanInUseTest, EveryTargetThatIsAskedAboutHasItsOwnAnswer) {
  (void)MakeProtectedShare();
  MakeLun("lun", 1 << 20);
  const Holder user(
      [] { return Open(PathOf("lun"), O_RDWR) && Open(PathOf("a") + "/plain", O_RDONLY); });
  std::vector<VrelDR::TargetUsers> answers;
  std::vector<std::string> unseen;
  const VrelDR::TargetUsersFinder finder;
  ASSERT_TRUE(finder.Find({"a-dr", "lun", "none", "a"}, answers, unseen));
  ASSERT_THAT(answers, SizeIs(4));
  EXPECT_THAT(answers[0].users, IsEmpty());
  EXPECT_EQ(answers[0].code, 0);
  ASSERT_THAT(answers[1].users, SizeIs(1));
  EXPECT_TRUE(answers[1].users[0].is_writer);
  EXPECT_EQ(answers[2].code, VrelDR::kErrTargetMissing);
  ASSERT_THAT(answers[3].users, SizeIs(1));
  EXPECT_EQ(answers[3].users[0].pid, user.GetPid());
  EXPECT_FALSE(answers[3].users[0].is_writer);
  UnmountSecondVolume();
  answers.clear();
  ASSERT_TRUE(finder.Find({"a-dr", "lun"}, answers, unseen));
  EXPECT_EQ(answers[0].code, VrelDR::kErrVolumeMissing);
  EXPECT_NE(answers[0].problem, "");
  EXPECT_THAT(answers[1].users, SizeIs(1));
}

}  // namespace
}  // namespace host_test
