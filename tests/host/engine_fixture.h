#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "config/config.h"
#include "engine/engine.h"
#include "engine/link.h"
#include "host_fixture.h"

namespace host_test {

// Keeps what a shipment tells, and checks that it makes sense.
class TestWatcher : public VrelDR::Watcher {
 public:
  void Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) override;
  bool GoesOn() override;

  // Makes the call stop as soon as this many bytes were sent.
  void StopAfter(std::uint64_t sent) { stop_after_ = sent; }

  std::uint64_t GetDone() const { return done_; }
  std::uint64_t GetTotal() const { return total_; }
  std::uint64_t GetSent() const { return sent_; }
  // How long ago the call was told to stop.
  std::chrono::steady_clock::duration GetDelay() const {
    return std::chrono::steady_clock::now() - stopped_;
  }

 private:
  std::uint64_t done_ = 0, total_ = 0, sent_ = 0;
  std::uint64_t stop_after_ = UINT64_MAX;
  std::chrono::steady_clock::time_point stopped_;
};

// A target of an engine, and the engine's calls about it, which nobody watches.
struct EngineTarget {
  std::shared_ptr<VrelDR::StorageEngine> engine;
  VrelDR::TargetPlace place;

  std::string TargetPath() const { return engine->GetTargetPath(place); }
  std::string SnapshotPath(const std::string& id) const {
    return engine->GetSnapshotPath(place, id);
  }
  VrelDR::Status Create(const VrelDR::TargetContent& content) const;
  VrelDR::Status CheckPlace(VrelDR::PlaceUse use) const;
  VrelDR::Status Remove() const;
  VrelDR::Status TakeSnapshot(const std::string& id) const;
  // Expects that they can be listed.
  std::set<std::string> Snapshots() const;
  VrelDR::Status RemoveSnapshot(const std::string& id) const;
  VrelDR::Status Restore(const std::string& id) const;
  VrelDR::Status Clone(const std::string& id, const EngineTarget& clone) const;
  // Makes it unwritable: it is quiesced and gives up its part.
  VrelDR::Status Demote() const;
  VrelDR::Status Promote(const std::string& id) const;
  VrelDR::Status CleanUp() const;
};

// Two volumes of the kinds that the parameter names, "a-b": the local engine's on this file system,
// or one of the engine "fake". A target "source" on the first one, and "replica" on the second.
class EngineTest : public testing::TestWithParam<std::string> {
 public:
  static std::string NameOf(const testing::TestParamInfo<std::string>& parameter);

 protected:
  // One of the volumes with its engine and its target.
  struct Side : EngineTarget {
    std::string type;
    std::string path;
    std::unique_ptr<MountedImage> image;
    VrelHost::VolumeConfig config;
    std::optional<VrelDR::VolumeIdentity> identity;  // that links expect

    bool IsFake() const { return type == "fake"; }
    // Another target on the volume, which need not be there: the local engine knows it by a
    // directory of that name.
    EngineTarget Other(const std::string& id, int targetType) const;
    // Removes what is on its way to the target, but not the snapshot `keepId`.
    VrelDR::Status Drop(const std::string& keepId) const;
  };

  void SetUp() override;
  void TearDown() override;
  // Where the volumes and their images are to be; a new directory.
  virtual std::string MakeRoot();

  // Makes the engine of the side's path.
  static void MakeEngine(Side& side, const std::string& name);

  Side& A() { return a_; }
  Side& B() { return b_; }
  const Side& A() const { return a_; }
  const Side& B() const { return b_; }
  bool AreBothBtrfs() const { return a_.type == "btrfs" && b_.type == "btrfs"; }

  // All expect to work.
  static void Take(const Side& side, const std::string& id);
  // The number of bytes that were sent.
  static std::uint64_t Ship(const Side& from, const std::string& id, const std::string& base,
                            const Side& to);
  static void ExpectSame(const Side& one, const Side& other, const std::string& id);
  static void ExpectTree(const std::string& path,
                         const std::map<std::string, std::string>& expected);
  static void ExpectStatus(const VrelDR::Status& status, int code, const std::string& part);
  // Nothing is on its way to the side, and nothing half made lies there.
  static void ExpectNothingIncoming(const Side& side);

  // The link from one volume to the other, which may be the same one.
  static std::unique_ptr<VrelDR::Link> LinkOf(const Side& from, const Side& to);
  // What Ship returns.
  static VrelDR::Status TryShip(const Side& from, const std::string& id, const std::string& base,
                                const Side& to, VrelDR::Watcher& watcher);

  // Puts a shell script in the place of a program, until FullSpeed.
  void UseProgram(const std::string& name, const std::string& script);
  // Lets whoever moves the bytes come slowly to an end, or to none, until FullSpeed.
  void SlowDown();
  void FullSpeed();

 private:
  void Open(Side& side, const std::string& name, const std::string& type, const std::string& id);

  std::string root_;
  std::string search_path_;
  Side a_, b_;
};

// Bytes that are never the same twice.
std::string RandomBytes(std::size_t count);
void Overwrite(const std::string& path, std::size_t at, const std::string& bytes);

// A share's tree that has everything that is hard to carry over, and what became of it later:
// bytes, names, kinds and links all change.
void MakeOddTree(const std::string& root);
void ChangeOddTree(const std::string& root);

}  // namespace host_test
