#include "tool_fixture.h"

// Changing what is remembered of a group snapshot.

namespace e2e {
namespace {

using testing::ElementsAre;

class EditTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    RunWell({"target", "create", "share", "--volume", "v1", "--type", "share"});
    RunWell({"group", "create", "g", "--target", "share"});
    id_ = TakeSnapshot({"--description", "first"});
    RunWell({"snapshot", "edit", id_, "--consistency", "crash"});
  }
  void ExpectShown(const std::string& description, bool locked, const std::string& kind) {
    const Json::Value shown = RunWell({"snapshot", "show", id_, "--json"}).Json();
    EXPECT_EQ(shown["description"], description);
    EXPECT_EQ(shown["is_locked"], locked);
    EXPECT_EQ(shown["consistency"], kind);
    EXPECT_EQ(shown["status"], "ready");
  }

  std::string id_;
};

TEST_F(EditTest, WhatIsNotGivenStays) {
  const Json::Value report =
      RunWell({"snapshot", "edit", id_, "--description", "it's \"second\"", "--json"}).Json();
  EXPECT_THAT(report.getMemberNames(),
              ElementsAre("consistency", "description", "gsnap_id", "is_locked"));
  ExpectShown("it's \"second\"", false, "crash");
  RunWell({"snapshot", "edit", id_, "--lock"});
  ExpectShown("it's \"second\"", true, "crash");
  RunWell({"snapshot", "edit", id_, "--consistency", "application"});
  ExpectShown("it's \"second\"", true, "application");
  RunWell(
      {"snapshot", "edit", id_, "--unlock", "--description", "", "--consistency", "unspecified"});
  ExpectShown("", false, "unspecified");
}

TEST_F(EditTest, ALockedOneIsNotDeletedUntilItIsUnlocked) {
  RunWell({"snapshot", "edit", id_, "--lock"});
  RunBadly(kRefused, {"snapshot", "delete", id_, "--yes"}, {id_, "locked", "--force"});
  RunWell({"snapshot", "edit", id_, "--unlock"});
  RunWell({"snapshot", "delete", id_, "--yes"});
}

TEST_F(EditTest, BadOnesAreToldAndChangeNothing) {
  RunBadly(kUsage, {"snapshot", "edit", id_}, {"nothing to change"});
  RunBadly(kUsage, {"snapshot", "edit", id_, "--lock", "--unlock"}, {"--lock", "--unlock"});
  RunBadly(kUsage, {"snapshot", "edit", id_, "--consistency", "odd"}, {"\"odd\"", "crash"});
  RunBadly(kNotFound, {"snapshot", "edit", "g-gsnap-1", "--lock"}, {"g-gsnap-1"});
  RunBadly(kNotFound, {"snapshot", "edit", "x-gsnap-1", "--lock"}, {"\"x\""});
  RunSql(DatabaseOf("g"),
         "CREATE TRIGGER refuse BEFORE UPDATE ON gsnap_meta BEGIN SELECT RAISE(FAIL, 'no'); END");
  RunBadly(kCatalogue, {"snapshot", "edit", id_, "--lock"}, {id_, "was not changed"});
  ExpectShown("first", false, "crash");
}

}  // namespace
}  // namespace e2e
