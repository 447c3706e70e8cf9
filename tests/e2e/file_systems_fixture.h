#pragma once

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "tool_fixture.h"
#include "tree.h"

namespace e2e {

// The file systems for the longest suites. What is shipped is tested on all of them, a build with
// sanitizers, which looks at the programs and not at the bytes, on the one that has both kinds of
// shipping.
inline std::vector<std::string> LongSuiteOn(std::vector<std::string> fileSystems) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  std::erase_if(fileSystems, [](const std::string& each) { return each != "btrfs"; });
#endif
  return fileSystems;
}

// What every file of some targets holds, by target and path.
using TargetContents = std::map<std::string, std::map<std::string, std::string>>;

inline TargetContents ReadContents(const std::map<std::string, std::string>& paths) {
  TargetContents contents;
  for (const auto& [target, path] : paths) {
    // A lun is a file. The folder of another target is the engine's, what is in it the user's.
    if (!std::filesystem::is_directory(path)) {
      contents[target]["disk"] = host_test::ReadFile(path);
    } else {
      contents[target] = host_test::DescribeTree(path);
      contents[target].erase(".");
    }
  }
  return contents;
}

// Changes the targets of ToolTest::MakeGroup: files in place, files gone and a new one.
inline void ChangeTargets(const std::map<std::string, std::string>& paths) {
  host_test::WriteFile(paths.at("lun"), std::string(90000, 'l'));
  host_test::WriteFile(paths.at("share") + "/one", "second text");
  host_test::WriteFile(paths.at("share") + "/new", "a new file");
  std::filesystem::remove(paths.at("share") + "/below/two");
  host_test::WriteFile(paths.at("guest") + "/guest.img", std::string(60000, 'g'));
}

// Runs the tool and expects it to be ended at a kill point.
inline void ExpectKilledAt(const std::string& step, const std::vector<std::string>& words) {
  setenv("VRELDR_KILL_POINT", step.c_str(), 1);
  std::vector<std::string> argv{DRGROUPCTL};
  argv.insert(argv.end(), words.begin(), words.end());
  const Result result = Process(argv).Wait();
  unsetenv("VRELDR_KILL_POINT");
  EXPECT_EQ(result.code, 128 + SIGKILL) << step << "\n" << result.err;
}

// Expects that nothing is left of work in progress on a volume.
inline void ExpectNoLeftovers(const std::string& volumePath) {
  const std::string tmp = volumePath + "/.vreldr/tmp";
  if (!std::filesystem::exists(tmp)) return;
  for (const auto& each : std::filesystem::recursive_directory_iterator(tmp)) {
    ADD_FAILURE() << "left over: " << each.path();
  }
}

// The volume "v1" is a plain directory or a file system that the test's parameter names. Images
// need root, and a test on one of them says that it is skipped where that is missing.
class FileSystemsTest : public ToolTest, public testing::WithParamInterface<std::string> {
 public:
  static std::string NameOf(const testing::TestParamInfo<std::string>& parameter) {
    return parameter.param;
  }

 protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (GetParam() == "directory") return;
    std::string why;
    image_ = std::make_unique<host_test::MountedImage>(GetParam(), VolumePath(), why);
    if (!image_->IsMounted()) GTEST_SKIP() << why;
  }
  void TearDown() override {
    image_.reset();
    ToolTest::TearDown();
  }
  bool IsBtrfs() const { return GetParam() == "btrfs"; }

 private:
  std::unique_ptr<host_test::MountedImage> image_;
};

}  // namespace e2e
