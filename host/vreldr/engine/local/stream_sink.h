#pragma once

#include <cstdint>
#include <string>

#include "base/fd.h"
#include "engine/local/tree_measure.h"
#include "engine/support/child.h"

namespace VrelDR::Local {

// The end of a shipment between volumes on btrfs to which the bytes go: the directory `into` of a
// volume is to hold the snapshot as a subvolume of its name. A failure leaves what has arrived as a
// subvolume that is not read-only, or nothing.
class StreamSink {
 public:
  StreamSink(const std::string& into, const std::string& snapId) : into_(into), snap_id_(snapId) {}

  // What can be taken of paths below a snapshot.
  PathLimits GetLimits() const;
  // From now on GetFd takes the bytes. `heldFd` is held for as long as something writes.
  Status Start(int heldFd);
  int GetFd() const { return stream_.write_end.Get(); }

  // To be called all the time: takes in what there is to be told. False when nobody takes the bytes
  // any more.
  bool IsRunning() { return receive_.IsRunning(); }
  int GetErrorFd() const { return receive_.GetErrorFd(); }
  std::uint64_t GetActivity() { return receive_.GetActivity(); }

  // All the bytes were given.
  void Close() { stream_.write_end = Fd(); }
  // Good when all of them have become the snapshot, which is not known to be on disk.
  Status Finish() { return receive_.Finish(); }
  void Stop() { (void)receive_.Stop(); }

 private:
  std::string into_, snap_id_;
  Pipe stream_;
  Child receive_;
};

}  // namespace VrelDR::Local
