#include "engine/local/stream_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "engine/local/stream.h"

namespace VrelDR::Local {

namespace {

std::vector<std::string> SendArgs(const std::string& snapshot, const std::string& base,
                                  bool withData) {
  std::vector<std::string> args{"btrfs", "-q", "send"};
  if (!withData) args.emplace_back("--no-data");
  if (!base.empty()) args.insert(args.end(), {"-p", base});
  args.push_back(snapshot);
  return args;
}

}  // namespace

Status StreamSource::BeginSizing() {
  if (!sizes_.read_end || fcntl(sizes_.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
    return StatusOfErrno(errno, {});
  }
  Status status = sizing_.Start(SendArgs(snapshot_, base_, false), kStreamPackage,
                                {.out = sizes_.write_end.Get()});
  sizes_.write_end = Fd();
  return status;
}

void StreamSource::ReadSizes() {
  sizing_.IsRunning();
  std::array<char, 65536> buffer;
  const ssize_t got = read(GetSizingFd(), buffer.data(), buffer.size());
  if (got > 0) sizer_.Feed({buffer.data(), static_cast<std::size_t>(got)});
  if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) sizes_.read_end = Fd();
}

Status StreamSource::CheckPaths(const PathLimits& limits, Shipment& shipment) {
  if (!base_.empty()) {
    while (GetSizingFd() != -1) {
      Status status = shipment.Tell(0, GetTotal(0), 0, GetActivity());
      if (!status.IsOk()) return status;
      WaitReadable({GetSizingFd()}, kStreamTickMs);
      ReadSizes();
    }
    if (sizer_.GetLongestPath() <= limits.entry && sizing_.Finish().IsOk()) return {};
  }
  std::uint64_t size = 0;
  return MeasureTree(snapshot_, limits, shipment.GetWatch(), size);
}

Status StreamSource::Start() {
  if (!stream_.read_end) return StatusOfErrno(errno, {});
  // A larger pipe is only faster.
  (void)fcntl(stream_.read_end.Get(), F_SETPIPE_SZ, kStreamPipeSize);
  Status status = send_.Start(SendArgs(snapshot_, base_, true), kStreamPackage,
                              {.out = stream_.write_end.Get()});
  stream_.write_end = Fd();
  return status;
}

void StreamSource::Tend() {
  // What they complain of is taken in, so that they never wait for that.
  send_.IsRunning();
}

std::uint64_t StreamSource::GetTotal(std::uint64_t sent) const {
  return std::max(sizer_.GetSize(), sent);
}

}  // namespace VrelDR::Local
