#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>

#include "file_systems_fixture.h"

// What differs between group snapshots, and between one and now.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DiffTest : public FileSystemsTest {
 protected:
  static Json::Value Diff(std::vector<std::string> words) {
    words.insert(words.begin(), {"snapshot", "diff"});
    words.emplace_back("--json");
    return RunWell(words).Json();
  }
  // "change path what" of a target's rows.
  static std::vector<std::string> Paths(const Json::Value& report, const std::string& target) {
    std::vector<std::string> texts;
    for (const Json::Value& each : report["paths"]) {
      if (each["target_id"] != target || each["path"] == ".") continue;
      texts.push_back(each["change"].asString() + " " + each["path"].asString() + " " +
                      each["what"].asString());
    }
    return texts;
  }
  static Json::Value Target(const Json::Value& report, const std::string& target) {
    for (const Json::Value& each : report["targets"]) {
      if (each["target_id"] == target) return each;
    }
    return {};
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, DiffTest, testing::Values("directory", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(DiffTest, NothingDiffersFromWhatWasNotChanged) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const Json::Value report = Diff({id, "--contents"});
  EXPECT_THAT(report.getMemberNames(), ElementsAre("extents", "gsnap_id", "is_cut_short", "is_now",
                                                   "other_gsnap_id", "paths", "targets"));
  EXPECT_THAT(report["paths"], IsEmpty());
  EXPECT_THAT(report["extents"], IsEmpty());
  EXPECT_EQ(report["targets"].size(), 3U);
  EXPECT_EQ(report["is_now"], true);
}

TEST_P(DiffTest, EveryKindOfChangeIsToldOfAShare) {
  MakeGroup();
  const std::string share = TargetPaths().at("share");
  for (const char* each : {"kept", "longer", "bytes", "touched", "turned", "secret", "owned"}) {
    WriteFile(share + "/" + each, "first");
  }
  fs::create_directories(share + "/gone/below");
  WriteFile(share + "/gone/below/file", "x");
  fs::create_symlink("kept", share + "/link");
  const std::string id = TakeSnapshot();

  WriteFile(share + "/longer", "longer than before");
  WriteFile(share + "/bytes", "other");
  const timeval times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(utimes((share + "/touched").c_str(), times), 0);
  fs::remove(share + "/turned");
  fs::create_directory(share + "/turned");
  WriteFile(share + "/turned/in", "new");
  ASSERT_EQ(chmod((share + "/secret").c_str(), 0600), 0);
  ASSERT_EQ(chown((share + "/owned").c_str(), 1234, 5678), 0);
  fs::remove_all(share + "/gone");
  fs::remove(share + "/link");
  fs::create_symlink("longer", share + "/link");
  fs::create_symlink("/etc", share + "/outside");
  const std::vector<std::string> expected{"changed bytes contents, times",
                                          "removed gone ",
                                          "removed gone/below ",
                                          "removed gone/below/file ",
                                          "changed link target, times",
                                          "changed longer size, contents, times",
                                          "added outside ",
                                          "changed owned owner",
                                          "changed secret mode",
                                          "changed touched times",
                                          "changed turned type",
                                          "added turned/in "};
  const Json::Value report = Diff({id});
  EXPECT_EQ(Paths(report, "share"), expected);
  EXPECT_EQ(Target(report, "share")["added"], 2);
  EXPECT_EQ(Target(report, "share")["removed"], 3);
  EXPECT_EQ(Paths(Diff({id, TakeSnapshot()}), "share"), expected);
}

TEST_P(DiffTest, OtherBytesOfTheSameSizeAndTimeAreFoundByReadingAll) {
  MakeGroup();
  const std::string file = TargetPaths().at("share") + "/one";
  const timeval times[2] = {{1000000000, 0}, {1000000000, 0}};
  WriteFile(file, "first");
  ASSERT_EQ(utimes(file.c_str(), times), 0);
  const std::string id = TakeSnapshot();
  WriteFile(file, "other");
  ASSERT_EQ(utimes(file.c_str(), times), 0);
  EXPECT_THAT(Paths(Diff({id}), "share"), IsEmpty());
  EXPECT_THAT(Paths(Diff({id, "--contents"}), "share"), ElementsAre("changed one contents"));
}

TEST_P(DiffTest, OfALunTheExtentsAreTold) {
  MakeGroup();
  const std::string lun = TargetPaths().at("lun");
  ASSERT_EQ(truncate(lun.c_str(), 8 << 20), 0);
  const std::string first = TakeSnapshot();
  std::string bytes = ReadFile(lun);
  bytes[5000] = '1';
  bytes[9000] = '2';
  bytes[(3 << 20) - 1] = '3';
  bytes[3 << 20] = '4';
  WriteFile(lun, bytes + "tail");
  const Json::Value report = Diff({first});
  std::vector<std::pair<unsigned, unsigned>> extents;
  for (const Json::Value& each : report["extents"]) {
    extents.emplace_back(each["offset"].asUInt(), each["length"].asUInt());
  }
  EXPECT_THAT(extents, ElementsAre(std::pair(4096U, 8192U), std::pair((3U << 20) - 4096, 8192U),
                                   std::pair(8U << 20, 4U)));
  EXPECT_EQ(Target(report, "lun")["changed_bytes"], 16388);
  EXPECT_EQ(Target(report, "lun")["changed"], 3);
}

class DiffInputTest : public DiffTest {};

INSTANTIATE_TEST_SUITE_P(FileSystems, DiffInputTest, testing::Values("directory"),
                         FileSystemsTest::NameOf);

TEST_P(DiffInputTest, NamesOfAnyBytesBreakNothing) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  WriteFile(TargetPaths().at("share") + "/a\nline\x1b[31m", "x");
  WriteFile(TargetPaths().at("share") + "/b\xff", "x");
  const std::string text = RunWell({"snapshot", "diff", id}).out;
  EXPECT_THAT(text, HasSubstr("a\\nline\\x1b[31m"));
  EXPECT_THAT(text, HasSubstr("b\\xff"));
  const Json::Value report = Diff({id});
  EXPECT_THAT(Paths(report, "share"), ElementsAre("added a\nline\x1b[31m ", "added b\uFFFD "));
  std::vector<std::string> hex;
  for (const Json::Value& each : report["paths"]) {
    if (each["change"] == "added") hex.push_back(each["path_hex"].asString());
  }
  EXPECT_THAT(hex, ElementsAre("", "62ff"));
}

TEST_P(DiffInputTest, WhatIsShownIsCutShortAndAllIsCounted) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const std::string share = TargetPaths().at("share");
  for (int i = 0; i < 10001; ++i) WriteFile(share + "/" + std::to_string(i), "");
  const Json::Value report = Diff({id});
  EXPECT_EQ(report["is_cut_short"], true);
  EXPECT_EQ(report["paths"].size(), 10000U);
  EXPECT_EQ(Target(report, "share")["added"], 10001);
  EXPECT_EQ(Target(Diff({id, "--all"}), "share")["added"], 10001);
  EXPECT_EQ(Paths(Diff({id, "--all"}), "share").size(), 10001U);
}

TEST_P(DiffInputTest, BadInputIsTold) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunBadly(kUsage, {"snapshot", "diff"}, {"GSNAP"});
  RunBadly(kNotFound, {"snapshot", "diff", "g-gsnap-1"}, {"g-gsnap-1"});
  RunBadly(kNotFound, {"snapshot", "diff", id, "g-gsnap-1"}, {"g-gsnap-1"});
  RunWell({"target", "create", "other", "--volume", "v1", "--type", "share"});
  RunWell({"group", "create", "o", "--target", "other"});
  const std::string other =
      RunWell({"snapshot", "create", "o", "--json"}).Json()["gsnap_id"].asString();
  const Result strange = Run({"snapshot", "diff", id, other});
  EXPECT_EQ(strange.code, kRefused);
  EXPECT_THAT(strange.err, HasSubstr("no target in common"));
  fs::remove_all(TargetPaths().at("share"));
  RunBadly(kNotFound, {"snapshot", "diff", id}, {"share", "are gone"});
}

}  // namespace
}  // namespace e2e
