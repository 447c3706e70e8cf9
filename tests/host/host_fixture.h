#pragma once

#include <gtest/gtest.h>
#include <json/writer.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vreldr/snapshot.h"
#include "vreldr/target_manager.h"
#include "vreldr/target_operation.h"

namespace host_test {

// Runs a program of PATH with its output thrown away, and waits. Its exit status, or -1.
int RunProgram(const std::vector<std::string>& args);

// Starts `body` in a child process. `environment` is set in the child first, as pairs of name and
// value. The process, or -1.
pid_t StartChild(const std::vector<std::pair<std::string, std::string>>& environment,
                 const std::function<int()>& body);
// Waits for a child process. Its exit status, which is what its `body` returned; 128 + N stands for
// signal N.
int WaitFor(pid_t pid);
// Both.
int RunInChild(const std::vector<std::pair<std::string, std::string>>& environment,
               const std::function<int()>& body);

// A directory with a file system of its own on a loop image, for as long as the object lives.
class MountedImage {
 public:
  // `type` is ext4, xfs or btrfs. `why` says what did not work. Of so many MiB, or small.
  MountedImage(const std::string& type, const std::string& dir, std::string& why,
               std::uint64_t mib = 0);
  ~MountedImage();
  MountedImage(const MountedImage&) = delete;
  MountedImage& operator=(const MountedImage&) = delete;

  bool IsMounted() const { return mounted_; }
  // Remounts with this option, such as "ro".
  bool Remount(const std::string& option) const;
  // Unmounts and mounts again: nothing is then known but what is on the image. With `cut` it is
  // what was there when the call began, as after a power cut; the image has to be on a file system
  // that can share blocks.
  bool MountAgain(bool cut);
  // One after the other.
  bool Unmount();
  bool Mount();
  std::string GetImage() const { return dir_ + ".img"; }

 private:
  std::string dir_;
  bool mounted_ = false;
};

// A host of the test's own: a configuration, a state directory, and one volume "v1" on the file
// system that the test's parameter names. "tmpfs" is there for everyone; the images need root, and
// a test on one of them says that it is skipped where that is missing. "fake" stands for a volume
// of that engine, in a program that has it.
class HostTest : public testing::TestWithParam<std::string> {
 public:
  // The name of a parameter in names of tests.
  static std::string NameOf(const testing::TestParamInfo<std::string>& parameter) {
    return parameter.param;
  }

 protected:
  void SetUp() override;
  void TearDown() override;

  const std::string& Root() const { return root_; }
  std::string VolumePath() const { return root_ + "/v1"; }
  std::string StateDir() const { return root_ + "/state"; }
  bool Remount(const std::string& option) const { return image_->Remount(option); }
  // Takes the volume away.
  void UnmountVolume();
  bool IsOnImage() const { return GetParam() != "tmpfs" && !IsFake(); }
  bool IsFake() const { return GetParam() == "fake"; }
  bool IsBtrfs() const { return GetParam() == "btrfs"; }

  // The volume as the configuration has it.
  std::string VolumeText(const std::string& name, const std::string& path) const;

  // Make a target on "v1" and expect that to work.
  void MakeLun(const std::string& id, std::uint64_t size) const;
  void MakeShare(const std::string& id, const std::vector<std::string>& sources = {}) const;
  static std::string PathOf(const std::string& targetId);

  // Takes a snapshot of the target and expects that to work.
  static VrelDR::Operation::Snapshot Take(const std::string& targetId);
  static std::vector<std::string> ListIds(const std::string& targetId);

  // Expects a failure of this code whose message is a text that has all `parts`.
  static void ExpectError(const VrelDR::DRErrRecorder& recorder, int code,
                          const std::vector<std::string>& parts);

  // Expects that nothing is left of work in progress on the volume.
  void ExpectNoLeftovers() const;

 private:
  std::string root_;
  std::unique_ptr<MountedImage> image_;
};

}  // namespace host_test
