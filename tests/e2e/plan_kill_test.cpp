#include "plan_fixture.h"

// Actions that are killed at every step and run again: one of two legal states, and never bytes
// that are neither.

namespace e2e {
namespace {

using Steps = std::vector<std::string>;

class PlanKillTest : public PlanTest {
 protected:
  // Kills `words` at each step and calls `check` after each, which runs it again. Every step but
  // those that this file system does not have has to be reached.
  template <class Before, class Check>
  void AtEach(const Steps& steps, const std::vector<std::string>& words, Before&& before,
              Check&& check) {
    for (const std::string& step : steps) {
      SCOPED_TRACE(step);
      before();
      const bool isKilled = RunKilledAt(step, words);
      EXPECT_TRUE(isKilled || MayBeMissing(step));
      if (isKilled) ExpectSameSnapshots();
      check(isKilled);
      ExpectSameSnapshots();
      if (HasFailure()) return;
    }
  }

  // Copies are made of files, subvolumes are not.
  bool MayBeMissing(const std::string& step) const {
    static const std::set<std::string> ofCopies{"take.copied",    "take.synced", "take.frozen",
                                                "restore.copied", "ship.frozen", "take.renamed"};
    return IsBtrfs() && ofCopies.count(step) != 0;
  }

  static Steps ShipSteps() {
    return {"hand.taken_up", "hand.recorded", "sync.recorded", "ship.begun",   "ship.data",
            "ship.sent",     "ship.synced",   "ship.marked",   "ship.frozen",  "ship.renamed",
            "ship.done",     "sync.shipped",  "sync.arrived",  "sync.reported"};
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanKillTest,
                         testing::ValuesIn(LongSuiteOn({"ext4", "xfs", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(PlanKillTest, ASyncThatIsKilledGoesOn) {
  MakeProtected();
  TargetContents wanted;
  AtEach(
      ShipSteps(), {"sync", "g"},
      [&] {
        ChangeMain();
        wanted = MainContents();
      },
      [&](bool) {
        EXPECT_EQ(States(), AllProtected());
        RunWell({"sync", "g"});
        EXPECT_EQ(States(), AllProtected());
        EXPECT_EQ(MainContents(), wanted);
        EXPECT_EQ(LastArrivedContents(), wanted);
      });
}

TEST_P(PlanKillTest, ASwitchoverThatIsKilledIsFinished) {
  MakeProtected();
  TargetContents wanted;
  AtEach(
      {"quiesce.done", "switchover.quiet", "sync.recorded", "sync.taken", "ship.data",
       "ship.renamed", "sync.shipped", "sync.arrived", "switchover.synced", "switchover.demoted",
       "restore.copied", "restore.synced", "restore.exchanged", "restore.done", "promote.done",
       "switchover.promoted", "switchover.turned"},
      {"switchover", "g"},
      [&] {
        ChangeMain();
        wanted = MainContents();
      },
      [&](bool isKilled) {
        if (isKilled) RunWell({"switchover", "g"});
        EXPECT_EQ(States(), AllTurned());
        EXPECT_EQ(CopyContents(), wanted);
        ChangeCopies();
        wanted = CopyContents();
        RunWell({"switchover", "g"});
        EXPECT_EQ(States(), AllProtected());
        EXPECT_EQ(MainContents(), wanted);
      });
}

TEST_P(PlanKillTest, AFailoverThatIsKilledIsFinished) {
  MakeProtected();
  TargetContents wanted;
  for (const bool isForced : {false, true}) {
    std::vector<std::string> words{"failover", "g", "--yes"};
    if (isForced) words.emplace_back("--force");
    AtEach(
        {"failover.demoted", "restore.copied", "restore.synced", "restore.exchanged",
         "restore.done", "promote.done", "failover.promoted", "failover.turned"},
        words,
        [&] {
          ChangeMain();
          wanted = MainContents();
          RunWell({"sync", "g"});
          ChangeMain();
        },
        [&](bool isKilled) {
          if (isKilled) RunWell(words);
          EXPECT_EQ(States(), AllFailedOver());
          EXPECT_EQ(CopyContents(), wanted);
          RunWell({"reprotect", "g"});
          RunWell({"switchover", "g"});
          EXPECT_EQ(States(), AllProtected());
          EXPECT_EQ(MainContents(), wanted);
        });
  }
}

TEST_P(PlanKillTest, AFailoverThatIsKilledWhileItIsTakenBackIsFinished) {
  MakeProtected();
  TargetContents wanted;
  setenv("VRELDR_FAIL_POINT", "promote@guest-dr", 1);
  AtEach(
      {"revert.demoted", "revert.promoted", "revert.turned"}, {"failover", "g", "--yes"},
      [&] {
        ChangeMain();
        wanted = MainContents();
        unsetenv("VRELDR_FAIL_POINT");
        RunWell({"sync", "g"});
        setenv("VRELDR_FAIL_POINT", "promote@guest-dr", 1);
      },
      [&](bool) {
        unsetenv("VRELDR_FAIL_POINT");
        RunWell({"failover", "g", "--yes"});
        EXPECT_EQ(States(), AllFailedOver());
        EXPECT_EQ(CopyContents(), wanted);
        RunWell({"reprotect", "g"});
        RunWell({"switchover", "g"});
        EXPECT_EQ(States(), AllProtected());
        EXPECT_EQ(MainContents(), wanted);
        setenv("VRELDR_FAIL_POINT", "promote@guest-dr", 1);
      });
  unsetenv("VRELDR_FAIL_POINT");
}

TEST_P(PlanKillTest, AReprotectionThatIsKilledIsFinished) {
  MakeProtected();
  TargetContents wanted;
  AtEach(
      {"take.recorded", "take.copied", "take.synced", "take.frozen", "take.renamed", "take.whole",
       "take.done", "reprotect.kept", "reprotect.turned"},
      {"reprotect", "g"},
      [&] {
        RunWell({"failover", "g", "--yes"});
        ChangeCopies();
        wanted = CopyContents();
      },
      [&](bool isKilled) {
        EXPECT_EQ(CopyContents(), wanted);
        if (isKilled) RunWell({"reprotect", "g"});
        EXPECT_EQ(States(), AllTurned());
        EXPECT_EQ(CopyContents(), wanted);
        RunWell({"sync", "g"});
        RunWell({"switchover", "g"});
        EXPECT_EQ(States(), AllProtected());
        EXPECT_EQ(MainContents(), wanted);
      });
}

TEST_P(PlanKillTest, AProtectionThatIsKilledIsFinishedWithWhatIsMissing) {
  MakeGroup();
  AtEach(
      {"create.recorded", "create.synced", "create.renamed", "create.whole", "create.done"},
      {"protect", "g", "--volume", "v2"}, [] {},
      [&](bool isKilled) {
        if (isKilled) RunWell({"protect", "g", "--volume", "v2", "--missing"});
        EXPECT_EQ(States(), AllProtected());
        EXPECT_EQ(TargetPaths().size(), 6U);
        RunWell({"sync", "g"});
        EXPECT_EQ(CopyContents().size(), 3U);
        RunWell({"unprotect", "g", "--delete-data", "--yes"});
        EXPECT_EQ(TargetPaths().size(), 3U);
        ExpectNoLeftovers(VolumePath("v2"));
      });
}

TEST_P(PlanKillTest, ADeletionThatIsKilledIsFinished) {
  MakeGroup();
  const auto wanted = MainContents();
  for (const bool withData : {false, true}) {
    std::vector<std::string> words{"unprotect", "g", "--yes"};
    Steps steps{"plan_delete.promoted", "plan_delete.done"};
    if (withData) {
      words.emplace_back("--delete-data");
      steps = {"plan_delete.marked", "forget.snapshots_gone", "forget.bytes_gone", "forget.done",
               "plan_delete.done"};
    }
    AtEach(
        steps, words,
        [&] {
          RunWell({"protect", "g", "--volume", "v2"});
          RunWell({"sync", "g"});
        },
        [&](bool isKilled) {
          if (isKilled) RunWell(words);
          EXPECT_EQ(States(), AllUnprotected());
          EXPECT_EQ(MainContents(), wanted);
          EXPECT_EQ(TargetPaths().size(), withData ? 3U : 6U);
          if (withData) return;
          EXPECT_EQ(CopyContents(), wanted);
          for (const char* id : {"lun-dr", "share-dr", "guest-dr"}) {
            RunWell({"target", "remove", id, "--with-snapshots", "--yes"});
          }
        });
  }
}

TEST_P(PlanKillTest, AnEditThatIsKilledIsFinished) {
  WriteConfiguration({"v1", "v2", "v3"});
  std::filesystem::create_directory(VolumePath("v3"));
  MakeProtected();
  int round = 0;
  std::vector<std::string> words;
  for (const std::string step : {"create.recorded", "create.done", "sync.taken", "ship.renamed",
                                 "sync.reported", "plan_delete.marked", "plan_delete.done"}) {
    SCOPED_TRACE(step);
    words = {"edit", "g", "--volume", ++round % 2 == 0 ? "v2" : "v3", "--yes"};
    ChangeMain();
    const auto wanted = MainContents();
    EXPECT_TRUE(RunKilledAt(step, words));
    RunWell(words);
    EXPECT_EQ(States(), AllProtected());
    EXPECT_EQ(TargetPaths().size(), 6U);
    RunWell({"switchover", "g"});
    RunWell({"switchover", "g"});
    EXPECT_EQ(MainContents(), wanted);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace e2e
