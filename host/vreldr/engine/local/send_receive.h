#pragma once

#include "engine/local/shipment.h"
#include "engine/local/stream_sink.h"
#include "engine/local/stream_source.h"

namespace VrelDR::Local {

// Moves a snapshot from a source to a sink, both in this process. kErrUnsupported before anything
// is sent when a path is too long; `givenUp` says that it was btrfs that gave up, as it does on a
// base that is of no use to it. `lockFd` is held for as long as something writes to the sink.
Status SendReceive(StreamSource& source, StreamSink& sink, int lockFd, Shipment& shipment,
                   bool& givenUp);

}  // namespace VrelDR::Local
