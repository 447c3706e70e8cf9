#include "engine/local/stream_sink.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "engine/local/stream.h"

namespace VrelDR::Local {

// The receiving program puts the path of its subvolume before each path and leaves room for two
// bytes more in what the system takes.
PathLimits StreamSink::GetLimits() const {
  constexpr std::size_t kMost = 4094;
  std::error_code error;
  const std::string real = std::filesystem::canonical(into_, error).string();
  const std::size_t prefix = (error ? into_ : real).size() + snap_id_.size() + 2;
  const std::size_t most = kMost - std::min(kMost, prefix);
  return {"btrfs receive", most, most};
}

Status StreamSink::Start(int heldFd) {
  if (!stream_.read_end) return StatusOfErrno(errno, {});
  // A larger pipe is only faster.
  (void)fcntl(stream_.read_end.Get(), F_SETPIPE_SZ, kStreamPipeSize);
  Status status = receive_.Start({"btrfs", "-q", "receive", into_}, kStreamPackage,
                                 {.in = stream_.read_end.Get(), .held = heldFd});
  stream_.read_end = Fd();
  return status;
}

}  // namespace VrelDR::Local
