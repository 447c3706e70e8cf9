#include "file_systems_fixture.h"

// Undoing restores: what a group held before is a group snapshot, and which one stands in its
// definition.

namespace e2e {
namespace {

using host_test::ReadFile;
using host_test::WriteFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class UndoTest : public FileSystemsTest {
 protected:
  static TargetContents Now() { return ReadContents(TargetPaths()); }
  static Json::Value Restore(const std::string& id) {
    return RunWell({"snapshot", "restore", id, "--yes", "--json"}).Json();
  }
  static Json::Value UndoRestore(const std::string& group = "g") {
    return RunWell({"snapshot", "restore", "--undo", group, "--yes", "--json"}).Json();
  }
  static Json::Value Group(const std::string& group = "g") {
    return RunWell({"group", "show", group, "--json"}).Json();
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, UndoTest, testing::Values("directory", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(UndoTest, BringsBackWhatWasBeforeAndIsUndoneItself) {
  MakeGroup();
  RunBadly(kRefused, {"snapshot", "restore", "--undo", "g", "--yes"},
           {"\"g\"", "nothing to undo", "none of it was restored"});
  const std::string id = TakeSnapshot();
  const auto first = Now();
  ChangeTargets(TargetPaths());
  const auto changed = Now();

  const std::string before = Restore(id)["before_id"].asString();
  EXPECT_EQ(Now(), first);
  EXPECT_THAT(ListSnapshots(), ElementsAre(id, before));
  EXPECT_EQ(RunWell({"snapshot", "show", before, "--json"}).Json()["description"],
            "before restore of " + id);
  EXPECT_EQ(ReadContents(SnapshotPaths(before)), changed);
  EXPECT_EQ(Group()["undo_gsnap_id"], before);
  EXPECT_EQ(Group()["unfinished_restore"], "");

  WriteFile(TargetPaths().at("share") + "/later", "written after the restore");
  const auto later = Now();
  const Json::Value undone = UndoRestore();
  EXPECT_EQ(undone["gsnap_id"], before);
  EXPECT_EQ(Now(), changed);
  UndoRestore();
  EXPECT_EQ(Now(), later);
  UndoRestore();
  EXPECT_EQ(Now(), changed);
}

TEST_P(UndoTest, ARestoreThatIsKilledAtAnyStepIsFinishedAndStillUndoneToTheFirstState) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const auto first = Now();
  for (const char* step : {"cut.settled", "undo.made", "undo.recorded", "restore.synced",
                           "restore.exchanged", "undo.restored", "undo.finished"}) {
    SCOPED_TRACE(step);
    ChangeTargets(TargetPaths());
    const auto changed = Now();
    for (const bool isTwice : {false, true}) {
      SCOPED_TRACE(isTwice);
      ExpectKilledAt(step, {"snapshot", "restore", id, "--yes"});
      // Before anything was replaced what was taken is a group snapshot as any other.
      if (isTwice && std::string(step) != "undo.finished") {
        RunWell({"snapshot", "restore", id, "--yes"});
        EXPECT_EQ(Now(), first);
      } else if (std::string(step) == "cut.settled" || std::string(step) == "undo.made") {
        EXPECT_EQ(Now(), changed);
        continue;
      }
      UndoRestore();
      EXPECT_EQ(Now(), changed);
      ExpectNoLeftovers(VolumePath());
    }
    RunWell({"snapshot", "restore", id, "--yes", "--no-undo"});
  }
}

TEST_P(UndoTest, AnUndoThatIsKilledIsFinishedByTheSameCommand) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const auto first = Now();
  ChangeTargets(TargetPaths());
  const auto changed = Now();
  for (const char* step : {"undo.recorded", "restore.exchanged", "restore.done", "undo.restored"}) {
    SCOPED_TRACE(step);
    Restore(id);
    ExpectKilledAt(step, {"snapshot", "restore", "--undo", "g", "--yes"});
    const std::string going = Group()["unfinished_restore"].asString();
    const Result again = RunWell({"snapshot", "restore", "--undo", "g", "--yes", "--json"});
    EXPECT_EQ(again.Json()["gsnap_id"], going);
    EXPECT_THAT(again.err, HasSubstr("was interrupted is gone on with"));
    EXPECT_EQ(Now(), changed);
    UndoRestore();
    EXPECT_EQ(Now(), first) << "the undo of the undo";
    UndoRestore();
    EXPECT_EQ(Now(), changed);
  }
}

class UndoKeptTest : public UndoTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, UndoKeptTest, testing::Values("directory"),
                         FileSystemsTest::NameOf);

TEST_P(UndoKeptTest, AGoneOnRestoreTakesNoSecondOneAndAnotherDoes) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  ChangeTargets(TargetPaths());
  const auto changed = Now();
  const std::string other = TakeSnapshot();
  ExpectKilledAt("restore.done", {"snapshot", "restore", id, "--yes"});
  const auto half = Now();
  EXPECT_EQ(ListSnapshots().size(), 3U);
  const std::string before = ListSnapshots().back();
  EXPECT_EQ(Group()["unfinished_restore"], id);
  EXPECT_THAT(RunBadly(kRefused, {"snapshot", "restore", id}, {"--yes"}).err,
              AllOf(HasSubstr("interrupted restore"), HasSubstr(before)));
  RunBadly(kRefused, {"snapshot", "delete", before, "--yes"},
           {"has not come to its end", "--force"});
  Restore(id);
  EXPECT_EQ(ListSnapshots().size(), 3U);
  EXPECT_EQ(Group()["undo_gsnap_id"], before);

  // What somebody wrote between two different restores is not lost.
  UndoRestore();
  ExpectKilledAt("restore.done", {"snapshot", "restore", id, "--yes"});
  EXPECT_EQ(Now(), half);
  Restore(other);
  EXPECT_EQ(Now(), changed);
  UndoRestore();
  EXPECT_EQ(Now(), half);
}

TEST_P(UndoKeptTest, StaysWhenARuleKeepsNothingElseUntilTheNextRestore) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  ChangeTargets(TargetPaths());
  const std::string before = Restore(id)["before_id"].asString();
  RunWell({"snapshot", "edit", before, "--description", ""});
  const std::string last = TakeSnapshot();
  EXPECT_THAT(RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--explain"}).out,
              HasSubstr("it undoes the last restore"));
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(before, last));
  RunWell({"snapshot", "restore", last, "--yes", "--no-undo"});
  RunWell({"snapshot", "prune", "g", "--keep", "last=1", "--yes"});
  EXPECT_THAT(ListSnapshots(), ElementsAre(last));
}

TEST_P(UndoKeptTest, OneThatWasDeletedIsToldByName) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const std::string before = Restore(id)["before_id"].asString();
  RunWell({"snapshot", "delete", before, "--yes"});
  const auto now = Now();
  RunBadly(kNotFound, {"snapshot", "restore", "--undo", "g", "--yes"},
           {"nothing to undo", before, "is gone"});
  EXPECT_EQ(Now(), now);
}

TEST_P(UndoKeptTest, FollowsTheNameOfItsGroup) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  ChangeTargets(TargetPaths());
  const auto changed = Now();
  Restore(id);
  for (const char* step : {"rename.defined", "rename.rewritten"}) {
    ExpectKilledAt(step, {"group", "rename", "g", "h"});
    RunWell({"group", "rename", "g", "h"});
    EXPECT_THAT(Group("h")["undo_gsnap_id"].asString(), HasSubstr("h-gsnap-"));
    RunWell({"group", "rename", "h", "g"});
  }
  UndoRestore();
  EXPECT_EQ(Now(), changed);
}

TEST_P(UndoKeptTest, OfAnIncompleteOneBringsBackThoseThatWereReplacedAlone) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunSql(DatabaseOf("g"), "DELETE FROM target_snap_list WHERE target_id = 'guest'");
  ChangeTargets(TargetPaths());
  auto changed = Now();
  const Json::Value done =
      RunWell({"snapshot", "restore", id, "--yes", "--force", "--json"}).Json();
  EXPECT_EQ(SnapshotPaths(done["before_id"].asString()).count("guest"), 0U);
  WriteFile(TargetPaths().at("guest") + "/guest.img", "written since");
  changed["guest"] = Now().at("guest");
  RunWell({"snapshot", "restore", "--undo", "g", "--yes"});
  EXPECT_EQ(Now(), changed);
}

TEST_P(UndoKeptTest, BadInputIsTold) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunBadly(kUsage, {"snapshot", "restore", "--yes"}, {"--undo"});
  RunBadly(kUsage, {"snapshot", "restore", id, "--undo", "g", "--yes"}, {"--undo"});
  RunBadly(kNotFound, {"snapshot", "restore", "--undo", "none", "--yes"}, {"\"none\""});
  Restore(id);
  const std::string path = GroupDirectory("g") + "/group.json";
  std::string text = ReadFile(path);
  const std::string member = "\"is_undo\":false";
  ASSERT_THAT(text, HasSubstr(member));
  WriteFile(path, text.replace(text.find(member), member.size(), "\"is_undo\":1"));
  RunBadly(kCatalogue, {"snapshot", "restore", "--undo", "g", "--yes"},
           {path, "\"last_restore\"", "\"is_undo\""});
}

}  // namespace
}  // namespace e2e
