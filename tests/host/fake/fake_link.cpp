#include "fake_link.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <thread>

#include "base/fail_point.h"
#include "base/kill_point.h"

namespace VrelDR::Fake {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBlock = 4096;

bool IsPeer(const State& state, const Peer& peer) {
  return std::find(state.peers.begin(), state.peers.end(), peer) != state.peers.end();
}

void ForgetPeer(const Store& store, const TargetPlace& place, const Peer& peer) {
  State state;
  if (!store.Load(place, state).IsOk() || std::erase(state.peers, peer) == 0) return;
  store.Save(store.DirOf(place), state);
}

// The bytes of a snapshot's files on their way. What a file on the other side has is what has
// arrived of it.
class Shipment {
 public:
  Shipment(const Store& to, const TargetPlace& replica, fs::path from, fs::path base, fs::path into,
           Watcher& watcher)
      : store_(to),
        replica_(replica),
        from_(std::move(from)),
        base_(std::move(base)),
        into_(std::move(into)),
        watch_(watcher) {}

  Status Run() {
    Status status = LayOut();
    if (!status.IsOk()) return status;
    for (const auto& each : fs::recursive_directory_iterator(from_)) {
      if (!each.is_symlink() && each.is_regular_file()) {
        files_.push_back(fs::path(each).lexically_relative(from_));
      }
    }
    std::sort(files_.begin(), files_.end());
    for (const fs::path& each : files_) total_ += fs::file_size(from_ / each);
    status = Advance(0, 0);
    for (const fs::path& each : files_) {
      if (status.IsOk()) status = Bring(each);
    }
    if (status.IsOk()) watch_.TellNow(done_, total_, sent_);
    return status;
  }

 private:
  // Makes all but the files' bytes, unless an earlier call has.
  Status LayOut() {
    const fs::path mark = into_.parent_path() / "laid_out";
    if (fs::exists(mark)) return {};
    fs::remove_all(into_);
    fs::create_directory(into_);
    Status status = CopyTree(from_, into_, watch_, false);
    if (status.IsOk()) store_.Write(mark, {});
    return status;
  }

  Status Bring(const fs::path& name) {
    std::ifstream in(from_ / name, std::ios::binary);
    std::ifstream base;
    if (fs::is_regular_file(fs::symlink_status(base_ / name))) {
      base.open(base_ / name, std::ios::binary);
    }
    const std::uintmax_t arrived = fs::file_size(into_ / name);
    std::ofstream out(into_ / name, std::ios::binary | std::ios::app);
    in.seekg(static_cast<std::streamoff>(arrived));
    if (base.is_open()) base.seekg(static_cast<std::streamoff>(arrived));
    Status status = Advance(arrived, 0);
    std::string block(kBlock, '\0');
    while (status.IsOk()) {
      in.read(block.data(), kBlock);
      const auto got = static_cast<std::size_t>(in.gcount());
      if (got == 0) break;
      out.write(block.data(), in.gcount());
      out.flush();
      if (!out) return StatusOfErrno(ENOSPC, into_ / name);
      const std::string bytes = block.substr(0, got);
      const bool isSent = !IsIn(base, bytes) && bytes != std::string(got, '\0');
      status = Advance(got, isSent ? got : 0);
    }
    out.close();
    struct stat st;
    if (stat((from_ / name).c_str(), &st) != 0) return StatusOfErrno(errno, from_ / name);
    const struct timespec times[] = {st.st_atim, st.st_mtim};
    if (utimensat(AT_FDCWD, (into_ / name).c_str(), times, 0) == 0) return status;
    return StatusOfErrno(errno, into_ / name);
  }

  // Whether the next bytes of the base are the same.
  static bool IsIn(std::ifstream& base, const std::string& bytes) {
    std::string there(bytes.size(), '\0');
    return base.is_open() && base.read(there.data(), static_cast<std::streamsize>(there.size())) &&
           there == bytes;
  }

  Status Advance(std::uint64_t done, std::uint64_t sent) {
    done_ += done;
    sent_ += sent;
    Status status = watch_.Tell(done_, total_, sent_, 0);
    if (!status.IsOk() || has_halved_ || done_ * 2 < total_) return status;
    has_halved_ = true;
    watch_.TellNow(done_, total_, sent_);
    KillPoint(kShipData);
    status = FailPoint(kFailShipMiddle, replica_.id);
    while (status.IsOk() && store_.Does(kSlow)) {
      std::this_thread::sleep_for(kTick);
      status = watch_.Tell(done_, total_, sent_, 0);
    }
    if (!status.IsOk() || !store_.Does(kLoseSecondHalf)) return status;
    return {kErrIo, "the second half of what was sent to " + Quoted(store_.GetPath()) + " is lost"};
  }

  const Store& store_;
  const TargetPlace& replica_;
  const fs::path from_, base_, into_;
  Watch watch_;
  std::vector<fs::path> files_;
  std::uint64_t done_ = 0, total_ = 0, sent_ = 0;
  bool has_halved_ = false;
};

}  // namespace

Status FakeLink::Check(const TargetPlace& source, Watcher& watcher) const {
  return OnStore(from_, watcher, [&]() -> Status {
    State state;
    Status status = from_.Load(source, state);
    if (!status.IsOk() || !from_.Does(kNoReplication)) return status;
    return {kErrUnsupported, "targets in " + Quoted(from_.GetPath()) + " are not replicated"};
  });
}

Status FakeLink::Attach(const TargetPlace& source, const TargetPlace& replica,
                        Watcher& watcher) const {
  State here;
  State there;
  Status status = OnStore(from_, watcher, [&] { return from_.Load(source, here); });
  if (status.IsOk()) status = OnStore(to_, watcher, [&] { return to_.Load(replica, there); });
  if (!status.IsOk()) return status;
  const Peer asSource{from_.GetPath(), source.locator};
  const Peer asReplica{to_.GetPath(), replica.locator};
  const bool isHere = IsPeer(here, asReplica);
  const bool isThere = IsPeer(there, asSource);
  if (isHere && isThere) return {};
  if (there.part != Part::kReplica) {
    return {kErrUnsupported, "target " + Quoted(replica.id) +
                                 " is no replica; demote it before it is attached to one"};
  }
  if (!isThere && !there.peers.empty()) {
    return {kErrUnsupported, "target " + Quoted(replica.id) + " is the replica of another target"};
  }
  status = OnStore(to_, watcher, [&] {
    if (!isThere) there.peers.push_back(asSource);
    to_.Save(to_.DirOf(replica), there);
    return Status();
  });
  if (!status.IsOk()) return status;
  return OnStore(from_, watcher, [&] {
    if (!isHere) here.peers.push_back(asReplica);
    from_.Save(from_.DirOf(source), here);
    return Status();
  });
}

Status FakeLink::Detach(const TargetPlace& source, const TargetPlace& replica,
                        Watcher& watcher) const {
  const Status here = OnStore(from_, watcher, [&] {
    ForgetPeer(from_, source, {to_.GetPath(), replica.locator});
    return Status();
  });
  const Status there = OnStore(to_, watcher, [&] {
    ForgetPeer(to_, replica, {from_.GetPath(), source.locator});
    return Status();
  });
  return here.IsOk() ? there : here;
}

Status FakeLink::CheckPair(const TargetPlace& source, const TargetPlace& replica,
                           Watcher& watcher) const {
  State here;
  State there;
  Status status = OnStore(from_, watcher, [&] { return from_.Load(source, here); });
  if (status.IsOk()) {
    status = OnStore(to_, watcher, [&] {
      const Status writable = to_.CheckWritable();
      return writable.IsOk() ? to_.Load(replica, there) : writable;
    });
  }
  if (!status.IsOk()) return status;
  const std::string cannot =
      "target " + Quoted(source.id) + " cannot be shipped to target " + Quoted(replica.id);
  if (!IsPeer(here, {to_.GetPath(), replica.locator}) ||
      !IsPeer(there, {from_.GetPath(), source.locator})) {
    return {kErrUnsupported, cannot + ", to which it is not attached"};
  }
  if (there.part == Part::kReplica) return {};
  return {kErrUnsupported, cannot + ", which works; demote that one"};
}

Status FakeLink::Ship(const TargetPlace& source, const std::string& snapId,
                      const std::string& baseId, const TargetPlace& replica,
                      Watcher& watcher) const {
  Status status = FailPoint(kFailShip, replica.id);
  if (status.IsOk()) status = CheckPair(source, replica, watcher);
  if (!status.IsOk() || to_.IsWhole(replica, snapId)) return status;
  return Guarded([&] { return Bring(source, snapId, baseId, replica, watcher); });
}

Status FakeLink::Bring(const TargetPlace& source, const std::string& snapId,
                       const std::string& baseId, const TargetPlace& replica,
                       Watcher& watcher) const {
  if (!from_.IsWhole(source, snapId)) {
    return {kErrSnapshotMissing,
            "snapshot " + Quoted(snapId) + " of target " + Quoted(source.id) + " is missing"};
  }
  const fs::path arriving = to_.SnapshotOf(replica, snapId);
  // The name and the path come first, and say nothing of the bytes.
  fs::create_directories(arriving / "bytes");
  to_.Write(arriving / "shipped", {});
  KillPoint(kShipBegun);
  const fs::path base = baseId.empty() || !to_.IsWhole(replica, baseId)
                            ? fs::path()
                            : to_.SnapshotOf(replica, baseId) / "bytes";
  Shipment shipment(to_, replica, from_.SnapshotOf(source, snapId) / "bytes", base,
                    arriving / "bytes", watcher);
  Status status = shipment.Run();
  if (!status.IsOk()) return status;
  KillPoint(kShipSent);
  to_.Write(arriving / "whole", {});
  KillPoint(kShipDone);
  return {};
}

Status FakeLink::Drop(const TargetPlace& replica, const std::string& keepSnapId,
                      Watcher& watcher) const {
  return OnStore(to_, watcher, [&] {
    Status status = to_.CheckWritable();
    const fs::path snapshots = to_.DirOf(replica) / "snapshots";
    if (!status.IsOk() || !fs::exists(snapshots)) return status;
    for (const auto& each : fs::directory_iterator(snapshots)) {
      const std::string id = each.path().filename();
      if (id == keepSnapId || to_.IsWhole(replica, id)) continue;
      if (fs::exists(each.path() / "shipped")) fs::remove_all(each.path());
    }
    return status;
  });
}

}  // namespace VrelDR::Fake
