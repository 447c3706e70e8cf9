#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <json/writer.h>

#include <map>
#include <string>
#include <vector>

// Running the tool as its users do, on a host of the test's own.
namespace e2e {

struct Result {
  int code = -1;  // 128 + N stands for signal N
  std::string out;
  std::string err;

  Json::Value Json() const;  // standard output as one document; a test failure when it is none
};

// The exit codes that the manual page promises.
enum Code {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNotFound = 3,
  kRefused = 4,
  kCatalogue = 5,
  kBusy = 6,
  kConfiguration = 7,
  kStorage = 8,
};

// A directory of the test's own, a configuration, and volumes in it that are plain directories.
class ToolTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  const std::string& Root() const { return root_; }
  std::string VolumePath(const std::string& volume = "v1") const { return root_ + "/" + volume; }
  std::string GroupDirectory(const std::string& group) const {
    return root_ + "/state/groups/" + group;
  }
  std::string DatabaseOf(const std::string& group) const {
    return GroupDirectory(group) + "/drgroup.db";
  }
  static std::string LinkDirectory(const std::string& group) {
    return "/var/packages/Guestora/etc/drgroup/" + group;
  }
  void WriteConfiguration(const std::vector<std::string>& volumes) const;

  // Runs the tool and waits. `outTo` takes its standard output when it is not empty.
  static Result Run(const std::vector<std::string>& words, const std::string& outTo = "");
  // The same, and expects it to succeed, or to fail with one line that has all `parts`.
  static Result RunWell(const std::vector<std::string>& words);
  static Result RunBadly(Code code, const std::vector<std::string>& words,
                         const std::vector<std::string>& parts);
  // The same for a refusal to go on without being told so, which has all `losses` on standard
  // output.
  static void RunUnasked(const std::vector<std::string>& words,
                         const std::vector<std::string>& parts,
                         const std::vector<std::string>& losses);

  // A lun, a share with a few files and a guest on `volume`, and the group "g" of the three.
  void MakeGroup(const std::string& volume = "v1");
  // A group snapshot of "g"; its identifier.
  static std::string TakeSnapshot(const std::vector<std::string>& options = {});
  static std::vector<std::string> ListSnapshots(const std::string& group = "g");
  // Where the bytes of each target, and of each target in a group snapshot, are.
  static std::map<std::string, std::string> TargetPaths();
  static std::map<std::string, std::string> SnapshotPaths(const std::string& gsnapId);

  // What identifies a state of the machine: every file below `dir` with its bytes.
  static std::map<std::string, std::string> Tree(const std::string& dir);

 private:
  std::string root_;
};

// Runs SQL on a database file, and expects that to work.
void RunSql(const std::string& path, const std::string& sql);

// Starts a program and gives it no terminal; `Wait` gives its result.
class Process {
 public:
  Process(const std::vector<std::string>& argv, const std::string& outTo = "");
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  Result Wait();

  int Id() const { return pid_; }
  // What it has written so far.
  std::string ErrorSoFar() const;
  std::string OutputSoFar() const;

 private:
  int pid_ = -1;
  int out_ = -1;  // memory files
  int err_ = -1;
};

}  // namespace e2e
