#pragma once

#include <cstdint>
#include <string>

#include "base/fd.h"
#include "engine/local/send_stream.h"
#include "engine/local/shipment.h"
#include "engine/local/tree_measure.h"
#include "engine/support/child.h"

namespace VrelDR::Local {

// The end of a shipment between volumes on btrfs from which the bytes come. It knows the sink by
// nothing but what that says of paths.
class StreamSource {
 public:
  // The read-only subvolume `snapshot`; of what differs from `base` alone, which may be empty and
  // else is beside it.
  StreamSource(const std::string& snapshot, const std::string& base)
      : snapshot_(snapshot), base_(base) {}

  // Begins to find out about how much there will be to send. A failure is what the program says.
  Status BeginSizing();
  // kErrUnsupported when a path is too long for the sink. On a base what is to be sent is looked
  // through, which soon is done, and all of the snapshot only when something is wrong with that.
  Status CheckPaths(const PathLimits& limits, Shipment& shipment);
  // From now on the bytes come out of GetFd.
  Status Start();
  int GetFd() const { return stream_.read_end.Get(); }

  // To be called all the time while bytes move: takes in what there is to be read besides them.
  void Tend();
  // To be waited for too; -1 when there is nothing to wait for.
  int GetSizingFd() const { return sizes_.read_end.Get(); }
  void ReadSizes();
  // How many bytes there will be, as far as it is known when `sent` have been sent.
  std::uint64_t GetTotal(std::uint64_t sent) const;
  std::uint64_t GetActivity() { return send_.GetActivity() + sizing_.GetActivity(); }

  // Nobody reads the bytes any more.
  void Close() { stream_.read_end = Fd(); }
  // Good when all has come out.
  Status Finish() { return send_.Finish(); }

 private:
  std::string snapshot_, base_;
  Pipe stream_, sizes_;
  Child send_, sizing_;
  SendStreamSizer sizer_;
};

}  // namespace VrelDR::Local
