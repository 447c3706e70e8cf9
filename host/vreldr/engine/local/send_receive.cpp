#include "engine/local/send_receive.h"

#include <fcntl.h>
#include <poll.h>

#include <array>
#include <cerrno>

#include "engine/local/stream.h"

namespace VrelDR::Local {

namespace {

Status Tell(StreamSource& source, StreamSink& sink, std::uint64_t sent, Shipment& shipment) {
  return shipment.Tell(sent, source.GetTotal(sent), sent,
                       source.GetActivity() + sink.GetActivity());
}

// Moves all that comes out of the source into the sink, as long as somebody reads that: `unread`
// says that nobody does any more.
Status Pump(StreamSource& source, StreamSink& sink, Shipment& shipment, std::uint64_t& sent,
            bool& unread) {
  const NoPipeSignal noSignal;
  for (;;) {
    source.Tend();
    unread = !sink.IsRunning();
    if (unread) return {};
    Status status = Tell(source, sink, sent, shipment);
    if (!status.IsOk()) return status;
    // Without a descriptor poll passes over an entry.
    std::array<struct pollfd, 2> sources{
        {{source.GetFd(), POLLIN, 0}, {source.GetSizingFd(), POLLIN, 0}}};
    if (poll(sources.data(), sources.size(), kStreamTickMs) <= 0) continue;
    if (sources[1].revents != 0) source.ReadSizes();
    if (sources[0].revents == 0) continue;
    struct pollfd taker = {sink.GetFd(), POLLOUT, 0};
    if (poll(&taker, 1, kStreamTickMs) <= 0) continue;
    const ssize_t moved = splice(source.GetFd(), nullptr, sink.GetFd(), nullptr, kStreamPipeSize,
                                 SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
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

Status SendReceive(StreamSource& source, StreamSink& sink, int lockFd, Shipment& shipment,
                   bool& givenUp) {
  givenUp = false;
  Status status = source.BeginSizing();
  if (status.IsOk()) status = source.CheckPaths(sink.GetLimits(), shipment);
  if (status.IsOk()) status = sink.Start(lockFd);
  if (!status.IsOk()) return status;
  status = source.Start();
  std::uint64_t sent = 0;
  bool unread = false;
  if (status.IsOk()) status = Pump(source, sink, shipment, sent, unread);
  if (!status.IsOk()) {
    sink.Stop();
    return status;
  }
  // Whoever failed first has the reason: the other one only saw its pipe end.
  source.Close();
  if (!unread) status = source.Finish();
  givenUp = !status.IsOk();
  if (givenUp) return status;
  sink.Close();
  while (sink.IsRunning()) {
    status = Tell(source, sink, sent, shipment);
    if (!status.IsOk()) return status;
    WaitReadable({sink.GetErrorFd()}, kStreamTickMs);
  }
  status = sink.Finish();
  givenUp = !status.IsOk();
  return status.IsOk() ? shipment.TellAll(source.GetTotal(sent), sent) : status;
}

}  // namespace VrelDR::Local
