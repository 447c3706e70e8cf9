#include "send_receive.h"

#include <fcntl.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "child.h"
#include "send_stream.h"

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

// Finds out about how many bytes there will be to send.
Status Measure(const std::string& snapshot, const std::string& base, Shipment& shipment,
               std::uint64_t& total, bool& givenUp) {
  Pipe stream;
  if (!stream.read_end || fcntl(stream.read_end.Get(), F_SETFL, O_NONBLOCK) != 0) {
    return StatusOfErrno(errno, {});
  }
  Child send;
  Status status =
      send.Start(SendArgs(snapshot, base, false), kPackage, {.out = stream.write_end.Get()});
  stream.write_end = Fd();
  SendStreamSizer sizer;
  std::array<char, 65536> buffer;
  while (status.IsOk()) {
    const ssize_t got = read(stream.read_end.Get(), buffer.data(), buffer.size());
    if (got == 0) break;
    if (got > 0) sizer.Feed({buffer.data(), static_cast<std::size_t>(got)});
    if (!shipment.GetWatch().GoesOn()) status = Watch::Stopped();
    send.IsRunning();
    if (got < 0) WaitReadable({stream.read_end.Get()}, kTickMs);
  }
  if (!status.IsOk()) return status;
  total = sizer.GetSize();
  status = send.Finish();
  givenUp = !status.IsOk();
  return status;
}

// Moves all that comes out of `from` into `to`, as long as somebody reads that: `unread` says that
// nobody does any more.
Status Pump(int from, int to, Child& send, Child& receive, Shipment& shipment, std::uint64_t total,
            std::uint64_t& sent, bool& unread) {
  const NoPipeSignal noSignal;
  for (;;) {
    // What they complain of is taken in, so that they never wait for that.
    send.IsRunning();
    unread = !receive.IsRunning();
    if (unread) return {};
    Status status = shipment.Tell(sent, total, sent);
    if (!status.IsOk()) return status;
    struct pollfd source = {from, POLLIN, 0};
    if (poll(&source, 1, kTickMs) <= 0) continue;
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

}  // namespace

Status SendReceive(const std::string& snapshot, const std::string& base, const std::string& into,
                   Shipment& shipment, bool& givenUp) {
  std::uint64_t total = 0;
  Status status = Measure(snapshot, base, shipment, total, givenUp);
  if (!status.IsOk()) return status;

  Pipe source;
  Pipe sink;
  if (!source.read_end || !sink.read_end) return StatusOfErrno(errno, {});
  // Larger pipes are only faster.
  (void)fcntl(source.read_end.Get(), F_SETPIPE_SZ, kPipeSize);
  (void)fcntl(sink.read_end.Get(), F_SETPIPE_SZ, kPipeSize);
  Child receive;
  Child send;
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
    status = Pump(source.read_end.Get(), sink.write_end.Get(), send, receive, shipment, total, sent,
                  unread);
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
    status = shipment.Tell(sent, total, sent);
    if (!status.IsOk()) return status;
    WaitReadable({receive.GetErrorFd()}, kTickMs);
  }
  status = receive.Finish();
  givenUp = !status.IsOk();
  return status.IsOk() ? shipment.TellAll(total, sent) : status;
}

}  // namespace VrelDR::Local
