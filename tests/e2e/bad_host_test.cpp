#include <sys/mount.h>

#include <cstdlib>
#include <filesystem>

#include "tool_fixture.h"
#include "tree.h"

// Configurations and volumes that cannot be used.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::WriteFile;
using testing::HasSubstr;
using Words = std::vector<std::string>;

class BadConfigurationTest : public ToolTest {
 protected:
  void ExpectRefused(const Words& parts) {
    for (const Words& words :
         {Words{"volume", "list"}, Words{"target", "list"},
          Words{"target", "create", "a", "--volume", "v1", "--type", "share"},
          Words{"target", "remove", "lun", "--yes"},
          Words{"group", "create", "h", "--target", "lun"}, Words{"snapshot", "create", "g"}}) {
      RunBadly(kConfiguration, words, parts);
    }
  }
};

TEST_F(BadConfigurationTest, AMissingOneIsNamed) {
  MakeGroup();
  const auto before = Tree(VolumePath());
  fs::remove(Root() + "/config.json");
  ExpectRefused({Root() + "/config.json", "VRELDR_CONFIG"});
  EXPECT_EQ(Tree(VolumePath()), before);
}

TEST_F(BadConfigurationTest, AnUnreadableOneIsNamed) {
  MakeGroup();
  fs::remove(Root() + "/config.json");
  fs::create_directory(Root() + "/config.json");
  ExpectRefused({Root() + "/config.json", "cannot read"});
}

TEST_F(BadConfigurationTest, OneThatIsNotJsonOrMeansNothingIsNamed) {
  MakeGroup();
  for (const char* text :
       {"", "no JSON", "[]", R"({"volumes": 5})", R"({"volumes": [{"name": "v1"}]})",
        R"({"volumes": [{"name": "v1", "engine": "frob"}]})", R"({"state": "/x"})",
        R"({"state_dir": "relative", "volumes": []})"}) {
    WriteFile(Root() + "/config.json", text);
    ExpectRefused({Root() + "/config.json"});
  }
}

// Two volumes, "v2" small and in memory: it can be filled and made read-only without root.
class BadVolumeTest : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    ASSERT_EQ(mount("tmpfs", VolumePath("v2").c_str(), "tmpfs", 0, "size=1m"), 0);
  }
  void TearDown() override {
    umount2(VolumePath("v2").c_str(), MNT_DETACH);
    ToolTest::TearDown();
  }
  void MakeReadOnly() const {
    ASSERT_EQ(mount(nullptr, VolumePath("v2").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
              0);
  }
};

TEST_F(BadVolumeTest, AFullVolumeLeavesNothingOfATarget) {
  WriteFile(Root() + "/big", std::string(3 << 20, 'b'));
  RunBadly(kStorage, {"target", "import", "a", "--volume", "v2", "--type", "lun", Root() + "/big"},
           {"\"a\"", "\"v2\"", "no space left", "free space"});
  EXPECT_TRUE(TargetPaths().empty());
  EXPECT_FALSE(fs::exists(VolumePath("v2") + "/a"));
  WriteFile(Root() + "/big", "small now");
  RunWell({"target", "import", "a", "--volume", "v2", "--type", "lun", Root() + "/big"});
}

TEST_F(BadVolumeTest, AReadOnlyVolumeLeavesNothingOfATarget) {
  MakeReadOnly();
  RunBadly(kStorage, {"target", "create", "a", "--volume", "v2", "--type", "share"},
           {"\"v2\"", "read-only"});
  EXPECT_TRUE(TargetPaths().empty());
}

TEST_F(BadVolumeTest, ATargetOnAReadOnlyVolumeIsNotRemovedInPart) {
  RunWell({"target", "create", "a", "--volume", "v2", "--type", "share"});
  WriteFile(TargetPaths().at("a") + "/file", "text");
  MakeReadOnly();
  RunBadly(kStorage, {"target", "remove", "a", "--yes"}, {"\"a\"", "\"v2\"", "read-only"});
  EXPECT_TRUE(fs::exists(VolumePath("v2") + "/a/file"));
}

TEST_F(BadVolumeTest, AVolumeWhoseDirectoryIsGoneIsNamed) {
  RunWell({"host", "init"});
  fs::remove_all(VolumePath("v1"));
  RunBadly(kStorage, {"target", "create", "a", "--volume", "v1", "--type", "share"},
           {"\"v1\"", VolumePath("v1")});
  EXPECT_FALSE(fs::exists(VolumePath("v1")));
}

TEST_F(BadVolumeTest, AVolumeThatLeftTheConfigurationIsNamed) {
  RunWell({"target", "create", "a", "--volume", "v2", "--type", "share"});
  RunWell({"group", "create", "g", "--target", "a"});
  WriteConfiguration({"v1"});
  const Result result = Run({"snapshot", "create", "g"});
  EXPECT_EQ(result.code, kStorage);
  EXPECT_THAT(result.err, HasSubstr("\"v2\""));
  EXPECT_TRUE(ListSnapshots().empty());
}

}  // namespace
}  // namespace e2e
