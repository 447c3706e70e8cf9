#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/status.h"
#include "engine/engine.h"
#include "engine/support/watch.h"
#include "misbehaviour.h"

namespace VrelDR::Fake {

// How often one looks whether it still does.
inline constexpr auto kTick = std::chrono::milliseconds(20);

// The part of a target.
enum class Part { kWorks, kQuiet, kReplica };

// The other target of a pair.
struct Peer {
  std::string path;  // of its store
  std::string locator;
  bool operator==(const Peer& other) const = default;
};

// What is kept of a target beside its bytes.
struct State {
  std::string id;
  Part part = Part::kWorks;
  std::vector<Peer> peers;
};

// A volume of the engine: a directory that has
//   .fake/          the volume's identity, how many places were given away, and what it does wrong
//   f-N/state       of one target; the name is its locator
//   f-N/bytes/      what users see; a LUN's bytes are in "disk.img"
//   f-N/building/   bytes that are being built
//   f-N/snapshots/ID/bytes/  there first, and filled then; with "shipped" and "laid_out" beside it
//                         on its way, and last of all "whole"
// Calls throw std::system_error for what the file system refuses; see OnStore.
class Store {
 public:
  explicit Store(std::string path) : path_(std::move(path)) {}

  const std::string& GetPath() const { return path_.native(); }
  void Expect(const VolumeIdentity& identity) { expected_ = identity; }

  // The directory is there, and nothing says that it shall not be reached.
  Status Reach() const;
  // And it is the expected volume.
  Status ReachOwn() const;
  Status CheckWritable() const;
  bool Does(const char* wrong) const { return std::filesystem::exists(Own() / wrong); }

  std::filesystem::path Own() const { return path_ / ".fake"; }
  std::filesystem::path DirOf(const TargetPlace& place) const { return path_ / place.locator; }
  std::filesystem::path BytesOf(const TargetPlace& place) const { return DirOf(place) / "bytes"; }
  std::filesystem::path BuildingOf(const TargetPlace& place) const {
    return DirOf(place) / "building";
  }
  std::filesystem::path SnapshotOf(const TargetPlace& place, const std::string& snapId) const {
    return DirOf(place) / "snapshots" / snapId;
  }
  // Where a target is built.
  std::filesystem::path NewOf(const TargetPlace& place) const {
    return Own() / ("new-" + place.locator);
  }

  bool HasTarget(const TargetPlace& place) const {
    return !place.locator.empty() && std::filesystem::exists(DirOf(place) / "state");
  }
  bool IsWhole(const TargetPlace& place, const std::string& snapId) const {
    return std::filesystem::exists(SnapshotOf(place, snapId) / "whole");
  }
  // kErrTargetMissing when there is no such target.
  Status Load(const TargetPlace& place, State& state) const;
  void Save(const std::filesystem::path& dir, const State& state) const;
  std::vector<std::string> Locators() const;

  // Reads a small file, none when it is not there, and writes one: a reader finds the old text or
  // the new one.
  std::optional<std::string> Read(const std::filesystem::path& file) const;
  void Write(const std::filesystem::path& file, const std::string& text) const;

 private:
  std::filesystem::path path_;
  std::optional<VolumeIdentity> expected_;
};

// Runs the body of a call, and makes a status of what the file system refuses.
template <class Body>
Status Guarded(Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (const std::filesystem::filesystem_error& error) {
    return StatusOfErrno(error.code().value(), error.path1());
  } catch (const std::system_error& error) {
    return StatusOfErrno(error.code().value(), {});
  }
}

// The same, on a store that is there and the expected one, unless the call shall not be made at
// all.
template <class Body>
Status OnStore(const Store& store, Watcher& watcher, Body&& body) {
  return Guarded([&]() -> Status {
    Status status = Watch(watcher).Wait();
    if (status.IsOk()) status = store.ReachOwn();
    return status.IsOk() ? body() : status;
  });
}

// Makes the directory `to`, which may be there with nothing in it, what `from` is; its files are
// empty without `hasBytes`.
Status CopyTree(const std::filesystem::path& from, const std::filesystem::path& to, Watch& watch,
                bool hasBytes = true);

// Waits for as long as the store is slow, with nothing to tell.
Status WaitWhileSlow(const Store& store, Watch& watch);

}  // namespace VrelDR::Fake
