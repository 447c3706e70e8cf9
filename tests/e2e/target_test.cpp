#include <filesystem>

#include "tool_fixture.h"
#include "tree.h"

// Volumes and targets.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;

using TargetTest = ToolTest;

TEST_F(TargetTest, VolumesAreListedWithWhatTheyCanDo) {
  WriteConfiguration({"v1", "v2", "v3"});
  const Json::Value volumes = RunWell({"volume", "list", "--json"}).Json()["volumes"];
  ASSERT_EQ(volumes.size(), 3U);
  EXPECT_THAT(volumes[0].getMemberNames(),
              ElementsAre("engine", "free_bytes", "is_atomic", "is_immutable", "method", "name",
                          "problem", "size_bytes", "where"));
  EXPECT_EQ(volumes[0]["engine"], "local");
  EXPECT_EQ(volumes[0]["where"], VolumePath("v1"));
  EXPECT_GT(volumes[0]["size_bytes"].asUInt64(), 0U);
  EXPECT_EQ(volumes[0]["problem"], "");
  EXPECT_THAT(volumes[2]["problem"].asString(), HasSubstr(VolumePath("v3")));
  std::string text = RunWell({"volume", "list"}).out;
  EXPECT_THAT(text, HasSubstr("PROBLEM"));
  EXPECT_THAT(text, HasSubstr(VolumePath("v2")));
  WriteConfiguration({"v1", "v2"});
  text = RunWell({"volume", "list"}).out;
  EXPECT_THAT(text, HasSubstr("FREE"));
  EXPECT_THAT(text, testing::Not(HasSubstr("PROBLEM"))) << "there is none to tell";
}

TEST_F(TargetTest, AnEmptyLunHasItsSizeAndTakesNoRoom) {
  const Json::Value made = RunWell({"target", "create", "lun1", "--volume", "v1", "--type", "lun",
                                    "--size", "3M", "--json"})
                               .Json();
  EXPECT_THAT(made.getMemberNames(), ElementsAre("path", "target_id", "type", "volume"));
  EXPECT_EQ(fs::file_size(made["path"].asString()), 3U << 20);
  EXPECT_EQ(host_test::AllocatedBytes(made["path"].asString()), 0U);
}

TEST_F(TargetTest, AShareIsImportedFromAFolderOrFromSeveralThings) {
  fs::create_directory(Root() + "/in");
  WriteFile(Root() + "/in/file", "text");
  WriteFile(Root() + "/other", "more");
  RunWell({"target", "import", "s1", "--volume", "v1", "--type", "share", Root() + "/in"});
  RunWell({"target", "import", "s2", "--volume", "v2", "--type", "share", Root() + "/in",
           Root() + "/other"});
  EXPECT_EQ(ReadFile(TargetPaths().at("s1") + "/file"), "text");
  EXPECT_EQ(ReadFile(TargetPaths().at("s2") + "/in/file"), "text");
  EXPECT_EQ(ReadFile(TargetPaths().at("s2") + "/other"), "more");
}

TEST_F(TargetTest, TargetsAreListedByIdentifier) {
  MakeGroup();
  TakeSnapshot();
  const Json::Value targets = RunWell({"target", "list", "--json"}).Json()["targets"];
  ASSERT_EQ(targets.size(), 3U);
  EXPECT_THAT(targets[0].getMemberNames(),
              ElementsAre("exists", "is_being_removed", "path", "problem", "snapshot_count",
                          "target_id", "type", "volume"));
  EXPECT_EQ(targets[0]["target_id"], "guest");
  EXPECT_EQ(targets[1]["snapshot_count"], 1);
  EXPECT_EQ(targets[2]["type"], "share");
}

TEST_F(TargetTest, WhatIsOutOfReachIsNeitherThereNorGone) {
  MakeGroup();
  TakeSnapshot();
  RunWell({"target", "create", "far", "--volume", "v2", "--type", "share"});
  RunWell({"group", "create", "h", "--target", "far", "lun"});
  const auto far = [] { return RunWell({"target", "list", "--json"}).Json()["targets"][0]; };
  EXPECT_EQ(far()["exists"], Json::Value(true));
  fs::rename(TargetPaths().at("far"), Root() + "/bytes");
  EXPECT_EQ(far()["exists"], Json::Value(false)) << "the volume says so";
  EXPECT_EQ(far()["snapshot_count"], 0);
  EXPECT_EQ(far()["problem"], "");

  fs::rename(VolumePath("v2"), Root() + "/away");
  EXPECT_TRUE(far()["exists"].isNull());
  EXPECT_TRUE(far()["snapshot_count"].isNull());
  EXPECT_THAT(far()["problem"].asString(), HasSubstr("v2"));
  const std::string text = RunWell({"target", "list"}).out;
  EXPECT_THAT(text, testing::ContainsRegex("far +share +v2 +\\? +\\?"));
  const Json::Value group = RunWell({"group", "show", "h", "--json"}).Json()["targets"];
  EXPECT_TRUE(group[0]["exists"].isNull());
  EXPECT_EQ(group[1]["exists"], Json::Value(true));

  WriteConfiguration({"v1"});
  EXPECT_TRUE(far()["exists"].isNull()) << "a volume that is not configured cannot be asked either";
}

TEST_F(TargetTest, RemovalTakesTheBytesAndAsksBefore) {
  MakeGroup();
  RunWell({"target", "create", "s1", "--volume", "v1", "--type", "share"});
  const std::string path = TargetPaths().at("s1");
  RunBadly(kRefused, {"target", "remove", "s1"}, {"\"s1\"", "all its bytes", "--yes"});
  EXPECT_TRUE(fs::exists(path));
  RunWell({"target", "remove", "s1", "--yes"});
  EXPECT_FALSE(fs::exists(path));
  RunBadly(kNotFound, {"target", "remove", "s1", "--yes"}, {"\"s1\"", "target list"});
}

TEST_F(TargetTest, RemovalOfATargetWithSnapshotsNeedsToBeToldSo) {
  MakeGroup();
  TakeSnapshot();
  RunBadly(kRefused, {"target", "remove", "lun", "--yes"}, {"1 snapshot", "--with-snapshots"});
  const Result result = RunWell({"target", "remove", "lun", "--yes", "--with-snapshots", "--json"});
  EXPECT_THAT(result.err, HasSubstr("belongs to group \"g\""));
  EXPECT_EQ(result.Json()["removed_snapshot_count"], 1);
  EXPECT_EQ(result.Json()["groups"][0], "g");
}

TEST_F(TargetTest, WrongSizesAndKindsAreRefused) {
  const std::vector<std::string> lun{"target", "create", "a", "--volume", "v1", "--type", "lun"};
  RunBadly(kUsage, lun, {"--size"});
  for (const char* size : {"0", "-1", "1X", "1.5G", "", "99999999999G", "K", "1KB"}) {
    auto words = lun;
    words.push_back(std::string("--size=") + size);
    if (*size == '\0') words.back() = "--size", words.push_back("");
    RunBadly(kUsage, words, {"--size"});
  }
  RunBadly(kUsage, {"target", "create", "a", "--volume", "v1", "--type", "share", "--size", "1M"},
           {"--size", "share"});
  RunBadly(kUsage, {"target", "create", "a", "--volume", "v1", "--type", "disk"},
           {"--type", "\"disk\"", "lun, share, guest"});
  EXPECT_TRUE(TargetPaths().empty());
}

TEST_F(TargetTest, ATargetThatExistsIsNotMadeAgain) {
  MakeGroup();
  const auto before = Tree(VolumePath());
  RunBadly(kRefused, {"target", "create", "share", "--volume", "v2", "--type", "share"},
           {"\"share\"", "exists already", "\"v1\""});
  EXPECT_EQ(Tree(VolumePath()), before);
}

TEST_F(TargetTest, AnUnknownVolumeOrSourceIsNamed) {
  RunBadly(kNotFound, {"target", "create", "a", "--volume", "v9", "--type", "share"},
           {"\"v9\"", "volume list"});
  WriteFile(Root() + "/file", "text");
  for (const std::string& wrong : {Root() + "/nothing", Root() + "/file/below"}) {
    RunBadly(
        kNotFound,
        {"target", "import", "a", "--volume", "v1", "--type", "share", Root() + "/file", wrong},
        {"\"" + wrong + "\"", "correct the path"});
  }
  EXPECT_TRUE(TargetPaths().empty());
}

}  // namespace
}  // namespace e2e
