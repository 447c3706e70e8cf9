#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "host_fixture.h"
#include "tree.h"
#include "vreldr/volume.h"
#include "vreldrnode/dr_node.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;
using VrelDR::VolumeInfo;
using VrelDR::VolumeManager;

class ConfigTest : public HostTest {
 protected:
  std::string ConfigFile() const { return Root() + "/config.json"; }

  void ExpectProblem(const std::string& text, const std::vector<std::string>& parts) const {
    SCOPED_TRACE(text);
    WriteFile(ConfigFile(), text);
    ExpectProblemNow(parts);
  }

  void ExpectProblemNow(std::vector<std::string> parts) const {
    parts.push_back("configuration \"" + ConfigFile() + "\"");
    const VolumeManager manager;
    std::vector<VolumeInfo> volumes;
    EXPECT_FALSE(manager.List(volumes));
    EXPECT_TRUE(volumes.empty());
    ExpectError(manager, VrelDR::kErrConfig, parts);
    const VrelDR::TargetOperation operation(1, "lun1");
    EXPECT_FALSE(operation.IsExisted());
    ExpectError(operation, VrelDR::kErrConfig, parts);
  }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, ConfigTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(ConfigTest, AMissingFileIsNamed) {
  fs::remove(ConfigFile());
  ExpectProblemNow({"does not exist", "VRELDR_CONFIG"});
}

TEST_P(ConfigTest, AFileThatCannotBeReadIsNamed) {
  fs::remove(ConfigFile());
  fs::create_directory(ConfigFile());
  ExpectProblemNow({"cannot read", "directory"});
}

TEST_P(ConfigTest, WhatIsNotAJsonObjectIsRefused) {
  for (const char* text : {"", "{", "[]", "null", "volumes", "{} {}", "{\"volumes\": [}", "\xff"}) {
    ExpectProblem(text, {"not a JSON object"});
  }
  ExpectProblem(R"({"volumes": [], "volumes": []})", {"not a JSON object", "Duplicate"});
  ExpectProblem(std::string(100000, '['), {"not a JSON object"});
}

TEST_P(ConfigTest, WrongKindsAreRefused) {
  ExpectProblem(R"({"state_dir": 5})", {"state_dir", "absolute path"});
  ExpectProblem(R"({"state_dir": "relative"})", {"state_dir", "absolute path"});
  ExpectProblem(R"({"volumes": {}})", {"\"volumes\" must be an array"});
  ExpectProblem(R"({"volumes": ["v1"]})", {"\"volumes\" must be an array of objects"});
  ExpectProblem(R"({"volumes": [{"name": 1}]})", {"\"volumes\"", "\"name\""});
  ExpectProblem(R"({"volumes": [{"name": "v1"}]})", {"\"v1\"", "engine"});
  ExpectProblem(R"({"volumes": [{"name": "v1", "engine": "local"}]})", {"\"v1\"", "\"path\""});
  ExpectProblem(R"({"volumes": [{"name": "v1", "engine": "local", "path": "v"}]})",
                {"\"v1\"", "absolute \"path\""});
  ExpectProblem(R"({"credentials": [{}]})", {"\"credentials\"", "\"id\""});
  ExpectProblem(R"({"credentials": "x"})", {"\"credentials\" must be an array"});
}

TEST_P(ConfigTest, UnknownNamesAreRefused) {
  ExpectProblem(R"({"volume": []})", {"\"volume\"", "unknown", "\"volumes\""});
  ExpectProblem(R"({"volumes": [{"name": "v1", "engine": "tape", "path": "/v"}]})",
                {"\"v1\"", "\"tape\"", "\"local\""});
  ExpectProblem(R"({"volumes": [{"name": "v1", "engine": "local", "path": "/v", "dir": "/w"}]})",
                {"\"v1\"", "\"dir\""});
}

TEST_P(ConfigTest, TwoOfOneNameOrPlaceAreRefused) {
  ExpectProblem(R"({"volumes": [{"name": "v1", "engine": "local", "path": "/v"},
                                {"name": "v1", "engine": "local", "path": "/w"}]})",
                {"more than one", "\"v1\""});
  ExpectProblem(R"({"volumes": [{"name": "v1", "engine": "local", "path": "/v"},
                                {"name": "v2", "engine": "local", "path": "//v/x/../"}]})",
                {"\"v1\"", "\"v2\"", "\"/v\""});
  ExpectProblem(R"({"credentials": [{"id": "c"}, {"id": "c"}]})", {"more than one", "\"c\""});
}

TEST_P(ConfigTest, VolumesComeInTheOrderOfTheFile) {
  fs::create_directory(Root() + "/v2");
  WriteFile(ConfigFile(), R"({"state_dir": "/var/none", "credentials": [{"id": "c"}], "volumes": [
    {"name": "z", "engine": "local", "path": ")" +
                              Root() + R"(/v2/"},
    {"name": "a", "engine": "local", "path": "/missing"}]})");
  const VolumeManager manager;
  std::vector<VolumeInfo> volumes;
  ASSERT_TRUE(manager.List(volumes)) << manager.GetErr();
  ASSERT_EQ(volumes.size(), 2u);
  EXPECT_EQ(volumes[0].name, "z");
  EXPECT_EQ(volumes[0].where, Root() + "/v2");
  EXPECT_EQ(volumes[0].problem, "");
  EXPECT_EQ(volumes[1].name, "a");
  EXPECT_NE(volumes[1].problem, "");
  EXPECT_FALSE(fs::exists("/var/none"));
}

TEST_P(ConfigTest, ATargetWhoseVolumeLeftTheConfigurationCannotBeReached) {
  MakeLun("lun1", 4096);
  WriteFile(ConfigFile(), R"({"state_dir": ")" + StateDir() + R"("})");
  const VrelDR::TargetOperation operation(1, "lun1");
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrVolumeMissing, {"lun1", "\"v1\"", ConfigFile()});
}

TEST_P(ConfigTest, AStateDirectoryThatCannotBeMadeIsNamed) {
  WriteFile(Root() + "/file", "");
  WriteFile(ConfigFile(), R"({"state_dir": ")" + Root() + R"(/file/state"})");
  const VrelDR::TargetOperation operation(1, "lun1");
  EXPECT_FALSE(operation.IsExisted());
  ExpectError(operation, VrelDR::kErrStore, {Root() + "/file/state"});
}

TEST_P(ConfigTest, TheNodeKeepsTheIdentifierThatItGotFirst) {
  const std::string id = VrelDRNode::DRNode::getLocalNodeId();
  EXPECT_EQ(id.size(), 36u);
  EXPECT_EQ(VrelDRNode::DRNode::getLocalNodeId(), id);
  EXPECT_EQ(RunInChild({}, [&] { return VrelDRNode::DRNode::getLocalNodeId() == id ? 0 : 1; }), 0);
}

TEST_P(ConfigTest, AnIdentifierOfTheNodeThatIsDamagedIsNotReplaced) {
  fs::create_directory(StateDir());
  WriteFile(StateDir() + "/node_id", "half an ident");
  EXPECT_EQ(VrelDRNode::DRNode::getLocalNodeId(), "");
  EXPECT_EQ(ReadFile(StateDir() + "/node_id"), "half an ident");
}

TEST_P(ConfigTest, WithoutAConfigurationTheNodeHasNoIdentifier) {
  fs::remove(ConfigFile());
  EXPECT_EQ(VrelDRNode::DRNode::getLocalNodeId(), "");
}

TEST_P(ConfigTest, ProcessesThatAskAtOnceGetOneIdentifier) {
  constexpr int kProcesses = 4;
  for (int round = 0; round < 20; ++round) {
    fs::remove_all(StateDir());
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        char byte = 0;
        close(start[1]);
        (void)!read(start[0], &byte, 1);  // until all are there
        WriteFile(Root() + "/id" + std::to_string(i), VrelDRNode::DRNode::getLocalNodeId());
        _exit(0);
      }
      children.push_back(pid);
    }
    close(start[0]);
    close(start[1]);
    for (const pid_t pid : children) EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
    const std::string id = VrelDRNode::DRNode::getLocalNodeId();
    EXPECT_EQ(id.size(), 36u);
    for (int i = 0; i < kProcesses; ++i) {
      EXPECT_EQ(ReadFile(Root() + "/id" + std::to_string(i)), id) << "round " << round;
    }
  }
}

}  // namespace
}  // namespace host_test
