#include "engine/local/rsync.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fstream>
#include <string_view>

#include "engine/support/child.h"

namespace VrelDR::Local {

namespace {

constexpr int kTickMs = 100;

using Clock = std::chrono::steady_clock;

// After it has failed to open a file of several names the program may wait for itself for ever. A
// working one is heard of every second.
constexpr std::chrono::seconds kSilence(5);

// Every attribute, hard links and holes are kept. Files are compared by their bytes and not by size
// and time (--ignore-times), and changed in place by what differs (--inplace, --no-whole-file); so
// an interrupted run leaves what it sent for the next one. Times have their nanoseconds
// (--modify-window). Access lists are not taken for extended attributes, as some file systems show
// them, and neither is what a file system alone understands (--filter).
const std::vector<std::string> kArgs = {"rsync",
                                        "--archive",
                                        "--hard-links",
                                        "--acls",
                                        "--xattrs",
                                        "--sparse",
                                        "--numeric-ids",
                                        "--filter=-x system.*",
                                        "--filter=-x trusted.SGI_ACL_*",
                                        "--filter=-x btrfs.*",
                                        "--ignore-times",
                                        "--inplace",
                                        "--no-whole-file",
                                        "--delete",
                                        "--modify-window=-1",
                                        "--no-human-readable",
                                        "--info=progress2,stats2",
                                        "--outbuf=N"};

// The system takes paths of this many bytes. The program opens a folder that it reads by all of its
// path, and everything else, on both sides, by the path below where it began.
constexpr std::size_t kLongestPath = 4095;

// What the program says of its progress, and of its work at the end.
class Progress {
 public:
  void Feed(std::string_view piece) {
    for (const char each : piece) {
      if (each != '\r' && each != '\n') {
        line_ += each;
        continue;
      }
      TakeLine();
      line_.clear();
    }
  }
  std::uint64_t GetDone() const { return done_; }
  std::uint64_t GetLiteral() const { return literal_; }

 private:
  void TakeLine() {
    constexpr std::string_view kLiteral = "Literal data: ";
    std::string_view line = line_;
    if (line.substr(0, kLiteral.size()) == kLiteral) {
      line.remove_prefix(kLiteral.size());
      std::from_chars(line.data(), line.data() + line.size(), literal_);
    } else if (line.find('%') != std::string_view::npos) {
      line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
      std::from_chars(line.data(), line.data() + line.size(), done_);
    }
  }

  std::string line_;
  std::uint64_t done_ = 0;
  std::uint64_t literal_ = 0;
};

// The program tells what it really sent when it is done. Meanwhile it is what its sender has
// written, as far as the system tells that.
std::uint64_t WrittenBytes(pid_t pid) {
  std::ifstream io("/proc/" + std::to_string(pid) + "/io");
  std::string name;
  std::uint64_t value = 0;
  while (io >> name >> value) {
    if (name == "wchar:") return value;
  }
  return 0;
}

}  // namespace

PathLimits RsyncLimits(const std::string& from) {
  return {"rsync", kLongestPath, kLongestPath - std::min(kLongestPath, from.size() + 1)};
}

Status Rsync(const std::string& from, const std::string& to, int lockFd, Shipment& shipment) {
  Pipe output;
  if (!output.read_end || fcntl(output.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
    return StatusOfErrno(errno, {});
  }
  std::uint64_t total = 0;
  Status status = MeasureTree(from, RsyncLimits(from), shipment.GetWatch(), total);
  if (!status.IsOk()) return status;
  std::vector<std::string> args = kArgs;
  args.push_back(from + "/");
  args.push_back(to + "/");
  Child rsync;
  status = rsync.Start(args, "rsync", {.out = output.write_end.Get(), .held = lockFd});
  output.write_end = Fd();
  Progress progress;
  Clock::time_point heard = Clock::now();
  bool isStuck = false;
  std::array<char, 4096> buffer;
  while (status.IsOk() && !isStuck) {
    const ssize_t got = read(output.read_end.Get(), buffer.data(), buffer.size());
    if (got == 0) break;
    if (got > 0) {
      progress.Feed({buffer.data(), static_cast<std::size_t>(got)});
      heard = Clock::now();
    }
    rsync.IsRunning();
    isStuck = rsync.HasComplained() && Clock::now() - heard > kSilence;
    status =
        shipment.Tell(progress.GetDone(), total, WrittenBytes(rsync.GetPid()), rsync.GetActivity());
    if (got < 0) WaitReadable({output.read_end.Get(), rsync.GetErrorFd()}, kTickMs);
  }
  if (!status.IsOk()) {
    (void)rsync.Stop();
    return status;
  }
  status = isStuck ? rsync.Stop() : rsync.Finish();
  return status.IsOk() ? shipment.TellAll(total, progress.GetLiteral()) : status;
}

}  // namespace VrelDR::Local
