#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "hold/writer_hold.h"

namespace host_test {

// Waits until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds most = std::chrono::seconds(20));

// A process that writes: it counts as fast as it can.
class CountingWriter {
 public:
  // Works in these control groups. With `file`, every count is written to that and synced.
  explicit CountingWriter(const std::vector<std::string>& groups, const std::string& file = "");
  ~CountingWriter();
  CountingWriter(const CountingWriter&) = delete;
  CountingWriter& operator=(const CountingWriter&) = delete;

  std::uint64_t Count() const { return counter_->load(); }
  // Waits until it has counted on.
  bool Moves(std::chrono::milliseconds most = std::chrono::seconds(20)) const;
  pid_t Pid() const { return pid_; }

 private:
  std::atomic<std::uint64_t>* counter_;
  pid_t pid_;
};

// Whether the writer stands still while another one, which nobody holds, counts a thousand times.
bool StandsStill(const CountingWriter& held);

// A test with control groups of its own, removed at its end with all that runs in them.
class HoldTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  const std::string& Root() const { return root_; }
  std::string FileOf(const std::string& name) const { return root_ + "/" + name; }
  // Where the hierarchy "v1" (the freezer's) or "v2" is; mounted for this test where nobody has
  // mounted it. Empty, with `why`, when this system has none.
  std::string Hierarchy(const std::string& kind, std::string& why) const;
  // Makes a control group.
  std::string MakeGroup(const std::string& kind, const std::string& name = "writers");

  // A command that notes each run of it in the files "frozen" and "thawed".
  VrelDR::QuiesceCommand NotingCommand(const std::string& freeze = "") const;
  std::vector<std::string> Shell(const std::string& text) const;
  void WriteScript(const std::string& name, const std::string& text) const;
  // The number of lines of a file; 0 when it is not there.
  std::size_t Lines(const std::string& name) const;
  // Whether a guardian of this program's runs.
  static bool HasGuardian();

 private:
  std::string root_;
  std::vector<std::string> groups_;
};

// With each kind of control groups.
class GroupHoldTest : public HoldTest, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override;
  const std::string& Group() const { return group_; }
  static bool IsFrozen(const std::string& group);
  // What anybody may do to a control group.
  static void Freeze(const std::string& group, bool frozen);
  VrelDR::QuiesceMeans Means() const;

 private:
  std::string group_;
};

}  // namespace host_test
