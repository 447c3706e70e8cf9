#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "file_systems_fixture.h"

// Files that are taken out of group snapshots.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::ReadFile;
using host_test::WriteFile;

class GetTest : public FileSystemsTest {
 protected:
  void SetUp() override {
    FileSystemsTest::SetUp();
    if (IsSkipped()) return;
    MakeGroup();
    share_ = TargetPaths().at("share");
    fs::create_directory(Root() + "/out");
  }
  const std::string& Share() const { return share_; }
  std::string Out(const std::string& name) const { return Root() + "/out/" + name; }
  std::vector<std::string> LeftOver() const {
    std::vector<std::string> names;
    for (const auto& each : fs::directory_iterator(Root() + "/out")) {
      if (each.path().filename().string().starts_with(".")) names.push_back(each.path());
    }
    return names;
  }

 private:
  std::string share_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, GetTest, testing::Values("directory", "xfs", "btrfs"),
                         FileSystemsTest::NameOf);

TEST_P(GetTest, AFileComesOutAsItWasWhateverHasBecomeOfIt) {
  ASSERT_EQ(chmod((Share() + "/one").c_str(), 0640), 0);
  fs::create_hard_link(Share() + "/one", Share() + "/also");
  fs::resize_file(Share() + "/below/two", 5000000);
  const fs::file_time_type time = fs::last_write_time(Share() + "/below/two");
  const std::string id = TakeSnapshot();
  fs::remove(Share() + "/one");
  WriteFile(Share() + "/below/two", "other");
  RunWell({"snapshot", "get", id, "share", "one", Out("one")});
  EXPECT_EQ(ReadFile(Out("one")), "first text");
  EXPECT_EQ(fs::status(Out("one")).permissions(), fs::perms(0640));
  RunWell({"snapshot", "get", id, "share", "/below/two", Out("two")});
  EXPECT_EQ(fs::file_size(Out("two")), 5000000U);
  EXPECT_EQ(fs::last_write_time(Out("two")), time);
  struct stat found = {};
  ASSERT_EQ(stat(Out("two").c_str(), &found), 0);
  EXPECT_LT(found.st_blocks, 2000) << "holes stay holes";
  EXPECT_TRUE(LeftOver().empty());
}

TEST_P(GetTest, ADirectoryComesOutWithAllInItAndLinksAsLinks) {
  fs::create_symlink("../one", Share() + "/below/link");
  const std::string id = TakeSnapshot();
  RunWell({"snapshot", "get", id, "share", "below", Out("tree")});
  EXPECT_EQ(ReadFile(Out("tree/two")), std::string(70000, 'S'));
  EXPECT_EQ(fs::read_symlink(Out("tree/link")), "../one");
}

TEST_P(GetTest, NothingOutsideTheTargetIsReached) {
  fs::create_directory(Root() + "/secret");
  WriteFile(Root() + "/secret/file", "secret");
  fs::create_symlink(Root() + "/secret", Share() + "/away");
  fs::create_symlink("below", Share() + "/near");
  const std::string id = TakeSnapshot();
  RunBadly(kRefused, {"snapshot", "get", id, "share", "away/file", Out("x")}, {"symbolic link"});
  RunBadly(kRefused, {"snapshot", "get", id, "share", "near/two", Out("x")}, {"symbolic link"});
  RunBadly(kUsage, {"snapshot", "get", id, "share", "../share/one", Out("x")}, {"\"..\""});
  RunBadly(kUsage, {"snapshot", "get", id, "share", "./", Out("x")}, {"as a whole"});
  RunWell({"snapshot", "get", id, "share", "away", Out("link")});
  EXPECT_TRUE(fs::is_symlink(Out("link"))) << "it comes as the link that it is";
  EXPECT_FALSE(fs::exists(Out("x")));
}

TEST_P(GetTest, WhatIsThereGivesWayOnlyWhenForcedAndBadInputIsNamed) {
  const std::string id = TakeSnapshot();
  WriteFile(Out("there"), "mine");
  RunBadly(kRefused, {"snapshot", "get", id, "share", "one", Out("there")}, {"--force"});
  EXPECT_EQ(ReadFile(Out("there")), "mine");
  RunWell({"snapshot", "get", id, "share", "one", Out("there"), "--force"});
  EXPECT_EQ(ReadFile(Out("there")), "first text");
  RunWell({"snapshot", "get", id, "share", "below", Out("there"), "--force"});
  EXPECT_TRUE(fs::is_directory(Out("there")));
  RunBadly(kRefused, {"snapshot", "get", id, "lun", "disk", Out("x")}, {"\"lun\"", "clone"});
  RunBadly(kNotFound, {"snapshot", "get", id, "share", "nothing", Out("x")}, {"\"nothing\""});
  RunBadly(kNotFound, {"snapshot", "get", id, "nobody", "one", Out("x")}, {"\"nobody\""});
  RunBadly(kNotFound, {"snapshot", "get", "g-gsnap-1", "share", "one", Out("x")}, {"g-gsnap-1"});
  RunBadly(kRefused, {"snapshot", "get", id, "share", "one", Out("no/x")}, {"no/x"});
  EXPECT_TRUE(LeftOver().empty());
}

TEST_P(GetTest, AfterAKillThereIsNothingOfThatName) {
  const std::string id = TakeSnapshot();
  setenv("VRELDR_KILL_POINT", "get.copied", 1);
  EXPECT_EQ(Run({"snapshot", "get", id, "share", "one", Out("one")}).code, 128 + SIGKILL);
  unsetenv("VRELDR_KILL_POINT");
  EXPECT_FALSE(fs::exists(Out("one")));
  EXPECT_EQ(LeftOver().size(), 1U);
  RunWell({"snapshot", "get", id, "share", "one", Out("one")});
  EXPECT_EQ(ReadFile(Out("one")), "first text");
}

}  // namespace
}  // namespace e2e
