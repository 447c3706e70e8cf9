#include "foundation/traces.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "base/kill_point.h"
#include "foundation/durable.h"
#include "foundation/records.h"
#include "foundation/volume_identity.h"

namespace VrelHost {

namespace {

using VrelDR::Fd;
using VrelDR::KillPoint;
using VrelDR::Quoted;

constexpr std::size_t kIdLength = 36;

// What the file says; empty when it is not an identity. A failure when it cannot be read.
Status ReadNodeId(const std::string& path, std::string& id) {
  id.clear();
  const Fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) return StateFailure("cannot read the host's identity " + Quoted(path), errno);
  char text[kIdLength + 2];
  const ssize_t got = read(fd.Get(), text, sizeof text);
  if (got == -1 && errno != EISDIR) {
    return StateFailure("cannot read the host's identity " + Quoted(path), errno);
  }
  if (got != static_cast<ssize_t>(kIdLength + 1) || text[kIdLength] != '\n') return {};
  id.assign(text, kIdLength);
  if (id.find_first_not_of("0123456789abcdef-") != std::string::npos) id.clear();
  return {};
}

// Puts a whole new file of this text in its place.
Status MakeFile(const std::string& path, const std::string& text) {
  const std::string work = path + ".new";
  unlink(work.c_str());  // of a making that was interrupted
  Status status = WriteNewFile(work, text);
  if (status.IsOk() && link(work.c_str(), path.c_str()) != 0) {
    status = StateFailure("cannot make " + Quoted(path), errno);
  }
  unlink(work.c_str());
  return status;
}

}  // namespace

Status LookAtState(const std::string& dir, StateSight& sight) {
  sight = {};
  Status status = IsThere(dir, sight.has_dir);
  const auto look = [&](const std::string& name, bool& there) {
    bool found = false;
    if (status.IsOk()) status = IsThere(dir + "/" + name, found);
    there = there || found;
  };
  if (!status.IsOk() || !sight.has_dir) return status;
  // In the opposite order of their making, so that what a maker finishes meanwhile is not taken for
  // the half of something.
  look(kRecordsName, sight.has_records);
  look(kIdentityName, sight.has_identity);
  look(kMakingName, sight.is_being_made);
  if (status.IsOk() && sight.has_identity) {
    status = ReadNodeId(dir + "/" + kIdentityName, sight.node_id);
  }
  if (!status.IsOk() || sight.IsWhole()) return status;
  look("locks", sight.has_locks);
  look("plan-locks", sight.has_locks);
  for (const char* each : kSideFiles) look(std::string(kRecordsName) + each, sight.has_side_files);
  return status;
}

Status LockState(const std::string& dir, Fd& lock) {
  Fd fd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  int result = fd ? 0 : -1;
  while (fd && (result = flock(fd.Get(), LOCK_EX)) != 0 && errno == EINTR) {
  }
  if (result != 0) return StateFailure("cannot lock the state directory " + Quoted(dir), errno);
  lock = std::move(fd);
  return {};
}

std::vector<Trace> TracesOnVolumes(const Config& config) {
  std::vector<Trace> traces;
  for (const VolumeConfig& each : config.volumes) {
    const VolumeTrace found = AskVolume(each);
    if (found.kind == VolumeTrace::Kind::kNothing) continue;
    const bool unclear = found.kind == VolumeTrace::Kind::kUnclear;
    traces.push_back({"volume " + Quoted(each.name),
                      unclear ? "cannot be asked whether a host uses it: " + found.text
                              : "is used by a host: " + found.text});
  }
  return traces;
}

std::vector<Trace> TracesInState(const std::string& dir, const StateSight& sight) {
  if (sight.IsEmpty()) return {};
  std::vector<Trace> traces;
  const std::string identity = Quoted(dir + "/" + kIdentityName);
  const std::string records = Quoted(dir + "/" + kRecordsName);
  traces.push_back({"the host's identity", identity + (!sight.has_identity     ? " is missing"
                                                       : sight.node_id.empty() ? " is damaged"
                                                                               : " is there")});
  traces.push_back(
      {"the host's records",
       records + (sight.has_records      ? " are there"
                  : sight.has_side_files ? " are missing, and files that belong to them are there"
                                         : " are missing")});
  if (sight.has_locks) traces.push_back({"its locks", "are there"});
  return traces;
}

Status MarkMaking(const std::string& dir) {
  const std::string path = dir + "/" + kMakingName;
  bool there = false;
  Status status = IsThere(path, there);
  if (status.IsOk() && !there) {
    status = WriteNewFile(path, "A host is being made here; the next start goes on with it.\n");
  }
  return status.IsOk() ? SyncDir(dir) : status;
}

Status MakeHost(const std::string& dir, const std::string& nodeId) {
  Status status = MarkMaking(dir);
  KillPoint(VrelDR::kHostMarked);
  StateSight sight;
  if (status.IsOk()) status = LookAtState(dir, sight);
  if (status.IsOk() && !sight.has_identity) {
    status = MakeFile(dir + "/" + kIdentityName, nodeId + "\n");
  }
  KillPoint(VrelDR::kHostIdentified);
  if (status.IsOk() && !sight.has_records) status = MakeRecords(dir + "/" + kRecordsName);
  if (status.IsOk()) status = SyncDir(dir);
  KillPoint(VrelDR::kHostRecorded);
  if (!status.IsOk()) return status;
  if (unlink((dir + "/" + kMakingName).c_str()) != 0 && errno != ENOENT) {
    return StateFailure("cannot finish making the host in " + Quoted(dir), errno);
  }
  KillPoint(VrelDR::kHostMade);
  return SyncDir(dir);
}

}  // namespace VrelHost
