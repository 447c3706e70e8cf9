#include "plan_fixture.h"

// For every action the operation of the first, the second and the third target fails, and the group
// ends in the state that is promised, told target by target.

namespace e2e {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class PlanFailureTest : public PlanTest {
 protected:
  static std::vector<std::string> Names() { return {"lun", "share", "guest"}; }

  // Fails `step` at each target in turn: `words` has to end with the results of `before` for the
  // targets before the failing one, and `check` finds the group in the state that is promised.
  template <class Check>
  static void AtEachTarget(const std::string& step, const std::string& suffix,
                           std::vector<std::string> words, const std::string& before,
                           Check&& check) {
    words.push_back("--json");
    for (std::size_t k = 0; k < Names().size(); ++k) {
      const std::string point = step + "@" + Names()[k] + suffix;
      SCOPED_TRACE(point);
      const Result result = RunFailingAt(point, words);
      EXPECT_EQ(result.code, kStorage) << result.err;
      EXPECT_THAT(result.err, AllOf(HasSubstr("failed: "), HasSubstr("failure at " + step),
                                    HasSubstr(Names()[k])));
      const Json::Value error = result.Json()["error"];
      const std::string message = error["message"].asString();
      EXPECT_TRUE(result.err.ends_with("drgroupctl: " + message + "\n")) << result.err;
      EXPECT_EQ(message.find('\n'), std::string::npos) << message;
      EXPECT_EQ(error["target_id"], Names()[k]);
      ASSERT_EQ(error["targets"].size(), 3U);
      for (Json::ArrayIndex i = 0; i < 3; ++i) {
        const std::string wanted = i < k ? before : i == k ? "failed" : "not started";
        // A sync that goes on with an interrupted one passes over what has that already.
        EXPECT_THAT(error["targets"][i]["result"].asString(),
                    AnyOf(wanted, i < k ? "nothing to do" : wanted));
        EXPECT_EQ(error["targets"][i]["target_id"], Names()[i]);
      }
      check(k);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, PlanFailureTest,
                         testing::ValuesIn(LongSuiteOn({"directory", "ext4", "xfs", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(PlanFailureTest, AProtectionIsTakenBack) {
  MakeGroup();
  AtEachTarget("create", "-dr", {"protect", "g", "--volume", "v2", "--dr-group", "gd"}, "reverted",
               [&](std::size_t) {
                 EXPECT_EQ(States(), AllUnprotected());
                 EXPECT_EQ(TargetPaths().size(), 3U);
                 RunBadly(kNotFound, {"group", "show", "gd"}, {"\"gd\""});
               });
  RunWell({"protect", "g", "--volume", "v2"});
}

TEST_P(PlanFailureTest, ASyncKeepsWhatHasArrived) {
  MakeProtected();
  for (const char* step : {"ship", "ship.middle"}) {
    ChangeMain();
    const auto wanted = MainContents();
    AtEachTarget(step, "-dr", {"sync", "g"}, "done", [&](std::size_t) {
      EXPECT_EQ(States(), AllProtected());
      EXPECT_EQ(MainContents(), wanted);
      ExpectSameSnapshots();
    });
    RunWell({"sync", "g"});
    EXPECT_EQ(LastArrivedContents(), wanted);
  }
}

TEST_P(PlanFailureTest, ASwitchoverIsTakenBackWithoutALoss) {
  MakeProtected();
  for (const auto& [step, suffix] : std::vector<std::pair<std::string, std::string>>{
           {"quiesce", ""}, {"ship", "-dr"}, {"promote", "-dr"}}) {
    ChangeMain();
    const auto wanted = MainContents();
    AtEachTarget(step, suffix, {"switchover", "g"}, "reverted", [&](std::size_t) {
      EXPECT_EQ(States(), AllProtected());
      EXPECT_EQ(MainContents(), wanted);
    });
    ChangeMain();
    RunWell({"sync", "g"});
  }
}

TEST_P(PlanFailureTest, AFailoverIsTakenBackWithoutALoss) {
  MakeProtected();
  ChangeMain();
  const auto wanted = MainContents();
  const auto check = [&](std::size_t) {
    EXPECT_EQ(States(), AllProtected());
    EXPECT_EQ(MainContents(), wanted);
  };
  AtEachTarget("promote", "-dr", {"failover", "g", "--yes"}, "reverted", check);
  AtEachTarget("promote", "-dr", {"failover", "g", "--force", "--yes"}, "reverted", check);
  ChangeMain();
  RunWell({"sync", "g"});
  ExpectSameSnapshots();
}

TEST_P(PlanFailureTest, AReprotectionIsTakenBack) {
  MakeProtected();
  RunWell({"failover", "g", "--yes"});
  ChangeCopies();
  const auto wanted = CopyContents();
  for (const char* step : {"take", "quiesce"}) {
    AtEachTarget(step, "", {"reprotect", "g"}, "reverted", [&](std::size_t) {
      EXPECT_EQ(States(), AllFailedOver());
      EXPECT_EQ(CopyContents(), wanted);
    });
  }
  RunWell({"reprotect", "g"});
  EXPECT_EQ(States(), AllTurned());
  EXPECT_EQ(CopyContents(), wanted);
}

TEST_P(PlanFailureTest, ADeletionKeepsWhatItHasNotReached) {
  MakeProtected();
  const auto wanted = MainContents();
  for (std::size_t k = 0; k < Names().size(); ++k) {
    SCOPED_TRACE(Names()[k]);
    const Result result = RunFailingAt("remove@" + Names()[k] + "-dr",
                                       {"unprotect", "g", "--delete-data", "--yes", "--json"});
    EXPECT_EQ(result.code, kStorage) << result.err;
    const Json::Value targets = result.Json()["error"]["targets"];
    ASSERT_EQ(targets.size(), 3U);
    for (Json::ArrayIndex i = 0; i < 3; ++i) {
      // The plan of one that failed before is gone; what is left of its copy is named.
      EXPECT_EQ(targets[i]["result"], i < k ? "nothing to do" : i == k ? "failed" : "not started");
      const Json::Value row = RunWell({"status", "g", "--json"}).Json()["targets"][i];
      EXPECT_EQ(row["state"], i <= k ? "unprotected" : "protected");
      EXPECT_EQ(row["problem"].asString().find("is being removed") != std::string::npos, i <= k);
    }
    EXPECT_EQ(MainContents(), wanted);
  }
  RunWell({"unprotect", "g", "--delete-data", "--yes"});
  EXPECT_EQ(States(), AllUnprotected());
  EXPECT_EQ(TargetPaths().size(), 3U);
}

TEST_P(PlanFailureTest, AnEditThatFailsBeforeTheOldCopiesGoLeavesThem) {
  WriteConfiguration({"v1", "v2", "v3"});
  std::filesystem::create_directory(VolumePath("v3"));
  MakeProtected();
  const auto copies = LastArrivedContents();
  const std::vector<std::string> words{"edit", "g", "--volume", "v3", "--yes"};
  const auto check = [&](std::size_t) {
    EXPECT_EQ(States(), AllProtected());
    EXPECT_EQ(TargetPaths().size(), 6U);
    EXPECT_EQ(LastArrivedContents(), copies);
  };
  AtEachTarget("create", "-dr2", words, "reverted", check);
  AtEachTarget("ship", "-dr2", words, "done", check);
  RunWell(words);
  EXPECT_EQ(TargetPaths().count("lun-dr"), 0U);
}

TEST_P(PlanFailureTest, WhatCannotBeTakenBackIsTold) {
  MakeProtected();
  // The third fails, and so does the way back of the second.
  const Result result =
      RunFailingAt("promote@guest-dr,promote@share", {"switchover", "g", "--json"});
  EXPECT_EQ(result.code, kStorage);
  const Json::Value targets = result.Json()["error"]["targets"];
  ASSERT_EQ(targets.size(), 3U);
  EXPECT_EQ(targets[0]["result"], "reverted");
  EXPECT_EQ(targets[1]["result"], "failed to revert");
  EXPECT_EQ(targets[1]["state"], "protected, share-dr works");
  EXPECT_EQ(targets[2]["result"], "failed");
  EXPECT_THAT(result.err, HasSubstr("target \"share\": failed to revert"));
  // Run again, it takes the one back that is not like the first: all are where they were.
  RunWell({"switchover", "g"});
  EXPECT_EQ(States(), AllProtected());
}

TEST_P(PlanFailureTest, PeopleGetATableOfWhatBecameOfEachTarget) {
  MakeProtected();
  const Result result = RunFailingAt("promote@share-dr", {"switchover", "g"});
  EXPECT_EQ(result.code, kStorage);
  EXPECT_THAT(result.out, HasSubstr("TARGET  RESULT       STATE                   PROBLEM\n"));
  EXPECT_THAT(result.out, HasSubstr("\nlun     reverted     protected, lun works    -\n"));
  EXPECT_THAT(result.out, HasSubstr("\nshare   failed       protected, share works  cannot"));
  EXPECT_THAT(result.out, HasSubstr("\nguest   not started  protected, guest works  -\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("warning")));
}

TEST_P(PlanFailureTest, WhatAForcedFailoverCouldNotStopIsToldUntilTheReprotection) {
  MakeProtected();
  EXPECT_EQ(RunFailingAt("quiesce@lun", {"failover", "g", "--force", "--yes"}).code, kDone);
  for (const Json::Value& row : RunWell({"status", "g", "--json"}).Json()["targets"]) {
    EXPECT_EQ(row["problem"].asString().find("target \"lun\" may still be written") == 0,
              row["target_id"] == "lun")
        << row;
  }
  RunWell({"reprotect", "g"});
  for (const Json::Value& row : RunWell({"status", "g", "--json"}).Json()["targets"]) {
    EXPECT_EQ(row["problem"], "");
  }
}

}  // namespace
}  // namespace e2e
