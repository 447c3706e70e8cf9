#include "engine/local/send_receive.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <vector>

#include "engine/local/send_stream.h"
#include "engine/local/tree_measure.h"
#include "engine/support/child.h"

namespace VrelDR::Local {

namespace {

constexpr const char* kPackage = "btrfs-progs";
constexpr int kTickMs = 100;
constexpr int kPipeSize = 1 << 20;  // what any user may have

std::vector<std::string> SendArgs(const std::string& snapshot, const std::string& base,
                                  bool withData) {
  std::vector<std::string> args{"btrfs", "-q", "send"};
  if (!withData) args.emplace_back("--no-data");
  if (!base.empty()) args.insert(args.end(), {"-p", base});
  args.push_back(snapshot);
  return args;
}

// Finds out, while the bytes are on their way, about how many there will be to send.
class Sizing {
 public:
  Status Start(const std::string& snapshot, const std::string& base) {
    if (!stream_.read_end || fcntl(stream_.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
      return StatusOfErrno(errno, {});
    }
    Status status =
        send_.Start(SendArgs(snapshot, base, false), kPackage, {.out = stream_.write_end.Get()});
    stream_.write_end = Fd();
    return status;
  }

  // To be read from when there is something; -1 at its end.
  int GetFd() const { return stream_.read_end.Get(); }
  void Read() {
    send_.IsRunning();
    std::array<char, 65536> buffer;
    const ssize_t got = read(GetFd(), buffer.data(), buffer.size());
    if (got > 0) sizer_.Feed({buffer.data(), static_cast<std::size_t>(got)});
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) stream_.read_end = Fd();
  }

  std::size_t GetLongestPath() const { return sizer_.GetLongestPath(); }
  // Good when all has been read.
  Status Finish() { return send_.Finish(); }

  // As far as it is known when `sent` bytes have been sent.
  std::uint64_t GetTotal(std::uint64_t sent) const { return std::max(sizer_.GetSize(), sent); }

 private:
  Pipe stream_;
  Child send_;
  SendStreamSizer sizer_;
};

// Moves all that comes out of `from` into `to`, as long as somebody reads that: `unread` says that
// nobody does any more.
Status Pump(int from, int to, Child& send, Child& receive, Sizing& sizing, Shipment& shipment,
            std::uint64_t& sent, bool& unread) {
  const NoPipeSignal noSignal;
  for (;;) {
    // What they complain of is taken in, so that they never wait for that.
    send.IsRunning();
    unread = !receive.IsRunning();
    if (unread) return {};
    Status status = shipment.Tell(sent, sizing.GetTotal(sent), sent);
    if (!status.IsOk()) return status;
    // Without a descriptor poll passes over an entry.
    std::array<struct pollfd, 2> sources{{{from, POLLIN, 0}, {sizing.GetFd(), POLLIN, 0}}};
    if (poll(sources.data(), sources.size(), kTickMs) <= 0) continue;
    if (sources[1].revents != 0) sizing.Read();
    if (sources[0].revents == 0) continue;
    struct pollfd sink = {to, POLLOUT, 0};
    if (poll(&sink, 1, kTickMs) <= 0) continue;
    const ssize_t moved =
        splice(from, nullptr, to, nullptr, kPipeSize, SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
    if (moved == 0) return {};
    if (moved > 0) {
      sent += static_cast<std::uint64_t>(moved);
    } else if (errno == EPIPE) {
      unread = true;
      return {};
    } else if (errno != EAGAIN && errno != EINTR) {
      return StatusOfErrno(errno, {});
    }
  }
}

// The receiving program puts the path of its subvolume before each path and leaves room for two
// bytes more in what the system takes.
PathLimits LimitsIn(const std::string& into, const std::string& snapshot) {
  constexpr std::size_t kMost = 4094;
  std::error_code error;
  const std::string real = std::filesystem::canonical(into, error).string();
  const std::size_t prefix =
      (error ? into : real).size() + snapshot.size() - snapshot.rfind('/') + 1;
  const std::size_t most = kMost - std::min(kMost, prefix);
  return {"btrfs receive", most, most};
}

// Refuses what the receiving program would give up at in the middle. On a base what is sent is
// looked through, which soon is done, and all of the snapshot only when something is wrong with
// that.
Status CheckPaths(const std::string& snapshot, const std::string& base, const std::string& into,
                  Sizing& sizing, Shipment& shipment) {
  const PathLimits limits = LimitsIn(into, snapshot);
  if (!base.empty()) {
    while (sizing.GetFd() != -1) {
      Status status = shipment.Tell(0, sizing.GetTotal(0), 0);
      if (!status.IsOk()) return status;
      WaitReadable({sizing.GetFd()}, kTickMs);
      sizing.Read();
    }
    if (sizing.GetLongestPath() <= limits.entry && sizing.Finish().IsOk()) return {};
  }
  std::uint64_t size = 0;
  return MeasureTree(snapshot, limits, shipment.GetWatch(), size);
}

}  // namespace

Status SendReceive(const std::string& snapshot, const std::string& base, const std::string& into,
                   Shipment& shipment, bool& givenUp) {
  Pipe source;
  Pipe sink;
  if (!source.read_end || !sink.read_end) return StatusOfErrno(errno, {});
  // Larger pipes are only faster.
  (void)fcntl(source.read_end.Get(), F_SETPIPE_SZ, kPipeSize);
  (void)fcntl(sink.read_end.Get(), F_SETPIPE_SZ, kPipeSize);
  Child receive;
  Child send;
  Sizing sizing;
  Status status = sizing.Start(snapshot, base);
  if (status.IsOk()) status = CheckPaths(snapshot, base, into, sizing, shipment);
  if (!status.IsOk()) return status;
  status = receive.Start({"btrfs", "-q", "receive", into}, kPackage,
                         {.in = sink.read_end.Get(), .held = shipment.GetLock()});
  sink.read_end = Fd();
  if (status.IsOk()) {
    status = send.Start(SendArgs(snapshot, base, true), kPackage, {.out = source.write_end.Get()});
  }
  source.write_end = Fd();
  std::uint64_t sent = 0;
  bool unread = false;
  if (status.IsOk()) {
    status = Pump(source.read_end.Get(), sink.write_end.Get(), send, receive, sizing, shipment,
                  sent, unread);
  }
  if (!status.IsOk()) {
    (void)receive.Stop();
    return status;
  }
  // Whoever failed first has the reason: the other one only saw its pipe end.
  source.read_end = Fd();
  if (!unread) status = send.Finish();
  givenUp = !status.IsOk();
  if (givenUp) return status;
  sink.write_end = Fd();
  while (receive.IsRunning()) {
    status = shipment.Tell(sent, sizing.GetTotal(sent), sent);
    if (!status.IsOk()) return status;
    WaitReadable({receive.GetErrorFd()}, kTickMs);
  }
  status = receive.Finish();
  givenUp = !status.IsOk();
  return status.IsOk() ? shipment.TellAll(sizing.GetTotal(sent), sent) : status;
}

}  // namespace VrelDR::Local
