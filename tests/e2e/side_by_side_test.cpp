#include <vreldr/report.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <thread>

#include "held_shipments.h"
#include "tool_fixture.h"
#include "tree.h"

// Syncs of a group's targets at the same time: in which order, how many, and what becomes of the
// others when one ends before its end.

namespace e2e {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::UnorderedElementsAre;
using Words = std::vector<std::string>;

// The targets "a" and "b" are replicated from v1 to v2, "c" to v3 and "d" to v4; all are group "g".
class SideBySideTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    WriteConfiguration({"v1", "v2", "v3", "v4"});
    for (const char* each : {"v3", "v4"}) std::filesystem::create_directory(VolumePath(each));
    for (const char* each : {"a", "b", "c", "d"}) {
      RunWell({"target", "create", each, "--volume", "v1", "--type", "share"});
      host_test::WriteFile(VolumePath() + "/" + each + "/file", std::string("first of ") + each);
    }
    Protect({"a", "b"}, "v2");
    Protect({"c"}, "v3");
    Protect({"d"}, "v4");
    RunWell({"group", "create", "g", "--target", "a", "b", "c", "d"});
    shipments_.emplace(Root() + "/shipments");
    for (const char* each : {"a-dr", "b-dr", "c-dr", "d-dr"}) shipments_->Hold(each);
  }
  void TearDown() override {
    shipments_.reset();
    unsetenv("VRELDR_FAIL_POINT");
    ToolTest::TearDown();
  }

  HeldShipments& Shipments() { return *shipments_; }
  void LetAllGo() {
    for (const char* each : {"a-dr", "b-dr", "c-dr", "d-dr"}) Shipments().LetGo(each);
  }
  // Waits until `condition` holds; a test failure when it does not in time.
  template <class Condition>
  static void Await(const Condition& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) {
        ADD_FAILURE() << "waited too long";
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  static Words Tool(Words words) {
    words.insert(words.begin(), DRGROUPCTL);
    return words;
  }
  static std::vector<std::string> Results(const Json::Value& targets) {
    std::vector<std::string> results;
    for (const Json::Value& each : targets) {
      results.push_back(each["target_id"].asString() + " " + each["result"].asString());
    }
    return results;
  }
  // Everything that the targets hold goes over.
  void ExpectSyncGoesOn() {
    LetAllGo();
    shipments_.reset();
    RunWell({"sync", "g"});
    RunWell({"failover", "g", "--yes"});
    for (const std::string each : {"a", "b"}) {
      EXPECT_EQ(host_test::ReadFile(VolumePath("v2") + "/" + each + "-dr/file"),
                "first of " + each);
    }
    EXPECT_EQ(host_test::ReadFile(VolumePath("v3") + "/c-dr/file"), "first of c");
    EXPECT_EQ(host_test::ReadFile(VolumePath("v4") + "/d-dr/file"), "first of d");
  }

 private:
  static void Protect(const Words& targets, const std::string& volume) {
    Words words{"group", "create", "to-" + volume, "--target"};
    words.insert(words.end(), targets.begin(), targets.end());
    RunWell(words);
    RunWell({"protect", "to-" + volume, "--volume", volume});
  }

  std::optional<HeldShipments> shipments_;
};

TEST_F(SideBySideTest, AsManyAsAreAskedForAreSentAndThoseOfTheSameVolumesOneAfterTheOther) {
  Process sync(Tool({"sync", "g", "--jobs", "2", "--json"}));
  Shipments().Await("begin a-dr");
  Shipments().Await("begin c-dr");
  Shipments().LetGo("c-dr");
  Shipments().Await("begin d-dr");
  Shipments().LetGo("d-dr");
  Shipments().Await("end d-dr");
  Shipments().LetGo("a-dr");
  Shipments().Await("begin b-dr");
  const auto notes = Shipments().Notes();
  Shipments().LetGo("b-dr");
  const Result result = sync.Wait();
  EXPECT_EQ(result.code, kDone) << result.err;
  EXPECT_THAT(Results(result.Json()["targets"]),
              ElementsAre("a done", "b done", "c done", "d done"));
  ASSERT_THAT(notes, SizeIs(7));
  EXPECT_THAT(std::vector<std::string>(notes.begin(), notes.begin() + 2),
              UnorderedElementsAre("begin a-dr", "begin c-dr"));
  EXPECT_THAT(std::vector<std::string>(notes.begin() + 2, notes.end()),
              ElementsAre("end c-dr", "begin d-dr", "end d-dr", "end a-dr", "begin b-dr"));
  ExpectSyncGoesOn();
}

TEST_F(SideBySideTest, WithoutANumberAllThatMayAreSentAtATime) {
  Process sync(Tool({"sync", "g"}));
  for (const char* each : {"begin a-dr", "begin c-dr", "begin d-dr"}) Shipments().Await(each);
  LetAllGo();
  EXPECT_EQ(sync.Wait().code, kDone);
}

TEST_F(SideBySideTest, OfTheSameVolumesTwoAreSentAtATimeWhereThatIsAskedFor) {
  Process sync(Tool({"sync", "to-v2", "--jobs", "2", "--same-volumes"}));
  Shipments().Await("begin a-dr");
  Shipments().Await("begin b-dr");
  LetAllGo();
  EXPECT_EQ(sync.Wait().code, kDone);
}

TEST_F(SideBySideTest, OneAtATimeIsInTheOrderOfTheTargets) {
  LetAllGo();
  RunWell({"sync", "g", "--jobs", "1"});
  EXPECT_THAT(Shipments().Notes(), ElementsAre("begin a-dr", "end a-dr", "begin b-dr", "end b-dr",
                                               "begin c-dr", "end c-dr", "begin d-dr", "end d-dr"));
}

TEST_F(SideBySideTest, AfterAFailureNoOtherIsBegunAndThoseThatRunGoToTheirEnd) {
  setenv("VRELDR_FAIL_POINT", "ship@c-dr", 1);
  Process sync(Tool({"sync", "g", "--jobs", "2", "--json"}));
  Shipments().Await("begin a-dr");
  // "c" has failed while "a" is still being sent.
  const std::string plan =
      RunWell({"status", "g", "--json"}).Json()["targets"][2]["plan_id"].asString();
  Await([&] {
    VrelDR::SiteOPJournal journal;
    return VrelDR::SiteOPJournalReporter(plan).ReadReport(journal) &&
           journal.GetState() == VrelDR::OPState::kFailed;
  });
  Shipments().LetGo("a-dr");
  const Result result = sync.Wait();
  unsetenv("VRELDR_FAIL_POINT");
  EXPECT_EQ(result.code, kStorage) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("\"c\""), HasSubstr("target \"a\": done"),
                                HasSubstr("target \"b\": not started"),
                                HasSubstr("target \"d\": not started")));
  const Json::Value error = result.Json()["error"];
  EXPECT_EQ(error["target_id"], "c");
  EXPECT_THAT(Results(error["targets"]),
              ElementsAre("a done", "b not started", "c failed", "d not started"));
  EXPECT_THAT(Shipments().Notes(), ElementsAre("begin a-dr", "end a-dr"));
  ExpectSyncGoesOn();
}

TEST_F(SideBySideTest, AStopEndsAllThatRun) {
  for (const bool isBySignal : {false, true}) {
    SCOPED_TRACE(isBySignal);
    const std::size_t before = Shipments().Notes().size();
    Process sync(Tool({"sync", "g", "--json"}));
    Await([&] { return Shipments().Notes().size() >= before + 3; });
    const auto begin = std::chrono::steady_clock::now();
    if (isBySignal) {
      kill(sync.Id(), SIGINT);
    } else {
      const Json::Value stop = RunWell({"stop", "g", "--json"}).Json();
      EXPECT_THAT(stop["stopped_targets"], SizeIs(3));
    }
    const Result result = sync.Wait();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(result.code, 9) << result.err;
    EXPECT_EQ(result.Json()["error"]["kind"], "stopped");
    EXPECT_THAT(Results(result.Json()["error"]["targets"]),
                ElementsAre("a failed", "b not started", "c failed", "d failed"));
  }
  ExpectSyncGoesOn();
}

TEST_F(SideBySideTest, ProgressTellsOfAllThatRun) {
  Process sync(Tool({"sync", "g"}));
  Await([&] { return sync.ErrorSoFar().find("target \"d\" (3/4)") != std::string::npos; });
  LetAllGo();
  const Result result = sync.Wait();
  EXPECT_THAT(result.err,
              AllOf(HasSubstr("0 %, target \"a\" (1/4)"), HasSubstr("0 %, target \"c\" (2/4)")));
}

TEST_F(SideBySideTest, ABarTellsHowManyRun) {
  Process sync({"script", "-qec", std::string(DRGROUPCTL) + " sync g", "/dev/null"});
  Await([&] { return sync.OutputSoFar().find("(3 at a time)") != std::string::npos; });
  LetAllGo();
  EXPECT_THAT(sync.Wait().out, AllOf(HasSubstr("\rsync g ["), HasSubstr("Synced group")));
}

TEST_F(SideBySideTest, ANumberThatIsNoneIsNamed) {
  for (const char* jobs : {"0", "65", "x", "4x", ""}) {
    RunBadly(kUsage, {"sync", "g", "--jobs", jobs}, {"--jobs", "1 to 64"});
  }
  RunBadly(kUsage, {"sync", "g", "--same-volumes"}, {"--same-volumes", "--jobs"});
}

}  // namespace
}  // namespace e2e
