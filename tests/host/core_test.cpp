#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "bind_mount.h"
#include "children.h"
#include "host_fixture.h"
#include "sync_record.h"
#include "tree.h"
#include "vrelcore/vlibc.h"
#include "vreldrcore/err_recorder.h"
#include "vreldrcore/file.h"
#include "vreldrcore/json.h"
#include "vreldrcore/uuid.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDRCore::File;

class CoreTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/var/core-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    dir_ = name;
  }

  std::string dir_;
};

TEST_F(CoreTest, MakesADirectoryWithItsParents) {
  EXPECT_TRUE(File::CreateDir(dir_ + "/a/b//c/", 0755));
  EXPECT_TRUE(fs::is_directory(dir_ + "/a/b/c"));
  EXPECT_EQ(fs::status(dir_ + "/a").permissions(), fs::perms(0755));
  EXPECT_EQ(fs::status(dir_ + "/a/b/c").permissions(), fs::perms(0755));
  EXPECT_TRUE(File::CreateDir(dir_ + "/a/b/c", 0700));
  EXPECT_EQ(fs::status(dir_ + "/a/b/c").permissions(), fs::perms(0755));
  EXPECT_TRUE(File::CreateDir("/", 0755));
}

TEST_F(CoreTest, MakesNoDirectoryWhereAFileIs) {
  WriteFile(dir_ + "/file", "kept");
  EXPECT_FALSE(File::CreateDir(dir_ + "/file", 0755));
  EXPECT_FALSE(File::CreateDir(dir_ + "/file/below", 0755));
  EXPECT_FALSE(File::CreateDir("", 0755));
  EXPECT_EQ(ReadFile(dir_ + "/file"), "kept");
}

TEST_F(CoreTest, TakesALinkToADirectoryForOne) {
  fs::create_directory(dir_ + "/real");
  fs::create_directory_symlink(dir_ + "/real", dir_ + "/link");
  EXPECT_TRUE(File::CreateDir(dir_ + "/link/below", 0755));
  EXPECT_TRUE(fs::is_directory(dir_ + "/real/below"));
}

TEST_F(CoreTest, BringsEveryDirectoryThatItMakesToDisk) {
  const test_support::SyncRecord disk;
  EXPECT_TRUE(File::CreateDir(dir_ + "/a//b/c/", 0755));
  EXPECT_EQ(disk.Paths(), (std::vector<std::string>{dir_, dir_ + "/a", dir_ + "/a/b"}));
  EXPECT_TRUE(File::CreateDir(dir_ + "/a/b/c", 0755));
  EXPECT_EQ(disk.Paths().size(), 3U);
}

TEST_F(CoreTest, MakesARelativeDirectoryDurable) {
  const fs::path before = fs::current_path();
  fs::current_path(dir_);
  const test_support::SyncRecord disk;
  EXPECT_TRUE(File::CreateDir("a/b", 0755));
  EXPECT_TRUE(File::RemoveDir("a/"));
  EXPECT_EQ(disk.Paths(), (std::vector<std::string>{dir_, dir_ + "/a", dir_}));
  fs::current_path(before);
}

TEST_F(CoreTest, LeavesNoDirectoryThatCannotBeBroughtToDisk) {
  test_support::SyncRecord disk;
  disk.Fail(dir_ + "/a");
  EXPECT_FALSE(File::CreateDir(dir_ + "/a/b/c", 0755));
  EXPECT_EQ(errno, EIO);
  EXPECT_TRUE(fs::is_directory(dir_ + "/a"));
  EXPECT_FALSE(fs::exists(dir_ + "/a/b"));
}

TEST_F(CoreTest, CountsARemovalThatCannotBeBroughtToDiskAsAFailure) {
  EXPECT_TRUE(File::CreateDir(dir_ + "/a/b", 0755));
  test_support::SyncRecord disk;
  disk.Fail(dir_);
  EXPECT_FALSE(File::RemoveDir(dir_ + "/a"));
  disk.Fail("");
  EXPECT_TRUE(File::RemoveDir(dir_ + "/a"));
  EXPECT_EQ(disk.Paths(), (std::vector<std::string>{dir_, dir_}));
  EXPECT_TRUE(File::RemoveDir(dir_ + "/none/below"));
}

TEST_F(CoreTest, RemovesATreeAndFollowsNoLink) {
  MakeSampleTree(dir_ + "/tree");
  fs::create_directory(dir_ + "/outside");
  WriteFile(dir_ + "/outside/file", "kept");
  fs::create_directory_symlink(dir_ + "/outside", dir_ + "/tree/folder/out");
  EXPECT_TRUE(File::RemoveDir(dir_ + "/tree"));
  EXPECT_FALSE(fs::exists(dir_ + "/tree"));
  EXPECT_EQ(ReadFile(dir_ + "/outside/file"), "kept");
  EXPECT_TRUE(File::RemoveDir(dir_ + "/tree"));
  EXPECT_FALSE(File::RemoveDir(""));
}

TEST_F(CoreTest, RemovesNothingOfWhatIsMountedInATree) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  fs::create_directories(dir_ + "/tree/mnt");
  fs::create_directory(dir_ + "/outside");
  WriteFile(dir_ + "/outside/file", "kept");
  for (const char* place : {"/tree/mnt", "/tree"}) {
    const BindMount mounted(dir_ + "/outside", dir_ + place);
    EXPECT_FALSE(File::RemoveDir(dir_ + "/tree"));
    EXPECT_EQ(ReadFile(dir_ + "/outside/file"), "kept");
  }
  EXPECT_TRUE(File::RemoveDir(dir_ + "/tree/"));
  EXPECT_FALSE(fs::exists(dir_ + "/tree"));
}

TEST_F(CoreTest, MakesUuidsThatDiffer) {
  std::set<std::string> uuids;
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = VrelDRCore::GenerateUUID();
    EXPECT_EQ(uuid.size(), 36u);
    EXPECT_EQ(uuid.find_first_not_of("0123456789abcdef-"), std::string::npos) << uuid;
    EXPECT_EQ(uuid[14], '4');
    uuids.insert(uuid);
  }
  EXPECT_EQ(uuids.size(), 100u);
}

TEST_F(CoreTest, TellsWhetherAPathExists) {
  fs::create_symlink(dir_ + "/nowhere", dir_ + "/dangling");
  fs::create_symlink(dir_, dir_ + "/link");
  EXPECT_EQ(VLIBCFileExist(dir_.c_str()), 1);
  EXPECT_EQ(VLIBCFileExist((dir_ + "/link").c_str()), 1);
  EXPECT_EQ(VLIBCFileExist((dir_ + "/dangling").c_str()), 0);
  EXPECT_EQ(VLIBCFileExist((dir_ + "/missing").c_str()), 0);
  EXPECT_EQ(VLIBCFileExist(""), 0);
}

TEST_F(CoreTest, LooksAtALinkItself) {
  fs::create_symlink("nowhere", dir_ + "/dangling");
  struct stat st = {};
  EXPECT_EQ(VLIBCFileLStat((dir_ + "/dangling").c_str(), VLIBC_STAT_ALL, &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  struct stat untouched = {};
  untouched.st_size = 77;
  EXPECT_EQ(VLIBCFileLStat((dir_ + "/missing").c_str(), VLIBC_STAT_ALL, &untouched), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(untouched.st_size, 77);
}

TEST_F(CoreTest, RunsAProgramAndTellsHowItEnded) {
  constexpr const char* kSh = "/bin/sh";
  const std::string file = dir_ + "/made by it";
  EXPECT_EQ(
      VLIBCExec(kSh, "-c", "echo \"$1\" > \"$0\"", file.c_str(), "it's $HOME; \"x\"", nullptr), 0);
  EXPECT_EQ(ReadFile(file), "it's $HOME; \"x\"\n");
  EXPECT_EQ(VLIBCExec(kSh, "-c", "exit 7", nullptr), 7);
  EXPECT_EQ(VLIBCExec(kSh, "-c", "kill -9 $$", nullptr), 128 + SIGKILL);
  EXPECT_EQ(VLIBCExec((dir_ + "/missing").c_str(), nullptr), -1);
  EXPECT_EQ(VLIBCExec("sh", "-c", "exit 0", nullptr), -1) << "PATH is not searched";
}

TEST_F(CoreTest, TellsHowAProgramEndedWhoeverIgnoresOrReapsTheChildrenOfTheProcess) {
  for (const Children children : kAllChildren) {
    EXPECT_EQ(RunInChild({},
                         [&] {
                           const HowChildrenEnd how(children);
                           for (int i = 0; i < 20; ++i) {
                             if (VLIBCExec("/bin/sh", "-c", "exit 7", nullptr) != 7) return 1;
                             if (VLIBCExec("/bin/sh", "-c", "kill -9 $$", nullptr) != 128 + SIGKILL)
                               return 2;
                             if (VLIBCExec("/bin/sh", "-c", "sleep 0.01 & wait $!", nullptr) != 0)
                               return 3;
                             if (VLIBCExec((dir_ + "/missing").c_str(), nullptr) != -1) return 4;
                           }
                           return 0;
                         }),
              0)
        << static_cast<int>(children);
  }
}

TEST_F(CoreTest, AProgramThatIsRunLeavesSignalsChildrenAndDescriptorsAsTheyWere) {
  static int signals = 0;
  const auto count = [](int) { ++signals; };
  const auto descriptors = [] {
    const fs::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  EXPECT_EQ(RunInChild({},
                       [&] {
                         struct sigaction action = {};
                         action.sa_handler = count;
                         sigaction(SIGCHLD, &action, nullptr);
                         const auto before = descriptors();
                         if (VLIBCExec("/bin/true", nullptr) != 0) return 1;
                         if (VLIBCExec("/bin/missing", nullptr) != -1) return 2;
                         struct sigaction after = {};
                         sigaction(SIGCHLD, nullptr, &after);
                         if (after.sa_handler != action.sa_handler || signals != 0) return 3;
                         sigset_t blocked;
                         sigprocmask(SIG_BLOCK, nullptr, &blocked);
                         if (sigisemptyset(&blocked) == 0) return 4;
                         if (waitpid(-1, nullptr, WNOHANG | __WALL) != -1) return 5;
                         return descriptors() == before ? 0 : 6;
                       }),
            0);
}

TEST_F(CoreTest, NothingThatAProgramIsRunByHoldsAProcessLocksAndPipes) {
  // All that its parent has is what tells it to wait.
  EXPECT_EQ(VLIBCExec("/bin/sh", "-c",
                      "for i in 1 2 3 4 5 6 7 8 9; do "
                      "[ $(ls /proc/$PPID/fd | wc -l) = 1 ] && exit 7; sleep 0.2; done; exit 1",
                      nullptr),
            7);
}

TEST_F(CoreTest, AProgramThatIsRunStartsWithNoSignalBlockedAndWithItsChildrenItsOwn) {
  const std::string file = dir_ + "/signals";
  EXPECT_EQ(RunInChild({},
                       [&] {
                         for (const int each : {SIGCHLD, SIGPIPE, SIGHUP}) {
                           if (std::signal(each, SIG_IGN) == SIG_ERR) return 1;
                         }
                         sigset_t all;
                         sigfillset(&all);
                         sigprocmask(SIG_BLOCK, &all, nullptr);
                         return VLIBCExec("/bin/sh", "-c", "grep Sig /proc/self/status > \"$0\"",
                                          file.c_str(), nullptr);
                       }),
            0);
  const std::string found = ReadFile(file);
  EXPECT_NE(found.find("SigBlk:\t0000000000000000"), std::string::npos) << found;
  // What is ignored besides stays so, as for a program that is to outlive its terminal.
  EXPECT_NE(found.find("SigIgn:\t0000000000000001"), std::string::npos) << found;
}

TEST_F(CoreTest, ARecorderTellsCodeTextAndMessage) {
  VrelDRCore::ErrRecorder recorder;
  EXPECT_EQ(VrelDRCore::JsonUtil::ToString(recorder.GetErr()), R"({"err_code":0})");
  recorder.SetErr(5, "why");
  EXPECT_EQ(VrelDRCore::JsonUtil::ToString(recorder.GetErr()), R"({"err_code":5,"err_msg":"why"})");
  recorder.SetErr(6);
  EXPECT_TRUE(recorder.GetErrMsg().isNull());
}

TEST_F(CoreTest, JsonOfTheWrongKindReadsAsNothing) {
  namespace JsonUtil = VrelDRCore::JsonUtil;
  const Json::Value text("5");
  EXPECT_EQ(JsonUtil::AsText(Json::Value(5)), "");
  EXPECT_FALSE(JsonUtil::AsBool(text));
  EXPECT_FALSE(JsonUtil::AsBool(Json::Value(1)));
  EXPECT_EQ(JsonUtil::AsInt64(text), 0);
  EXPECT_EQ(JsonUtil::AsInt64(Json::Value(1e300)), 0);
  EXPECT_EQ(JsonUtil::AsUInt64(Json::Value(-1)), 0u);
  EXPECT_TRUE(JsonUtil::Member(text, "a").isNull());
  EXPECT_FALSE(JsonUtil::HasMember(Json::Value(Json::arrayValue), "a"));
}

}  // namespace
}  // namespace host_test
