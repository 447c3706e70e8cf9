#pragma once

#include <string>

#include "engine/local/ship_sink.h"
#include "engine/local/ship_source.h"
#include "engine/local/shipment.h"

namespace VrelDR::Local {

class ChangeFinder;
class ChangeMark;
class ShipDigests;

// A shipment on a base that both ends have, by what the source finds changed in it. Not every
// shipment can go this way: there may be no base, nobody to find the changes, or something that one
// of the ends can do nothing with.
class ChangeWay {
 public:
  // All stay longer than this object. `baseId` may be empty.
  ChangeWay(const ShipSource& source, const ShipSink& sink, const std::string& snapId,
            const std::string& baseId)
      : source_(source), sink_(sink), snap_id_(snapId), base_id_(baseId) {}

  // Makes the place where the snapshot arrives hold all of it, going on from what an earlier call
  // of this way has left. When it cannot go this way that is no failure, IsDone is false, and
  // `hasArrived` says whether something is there, which then may be gone on with in another way.
  Status Bring(Shipment& shipment, WriteBack& writeBack, bool& hasArrived);
  bool IsDone() const { return is_done_; }

 private:
  // Where it begins, and between what.
  struct Ends {
    int snapshot_fd, base_fd, base_there_fd;
    bool shares_blocks;   // whether files that arrive can
    std::uint64_t total;  // the bytes of all files
  };
  // Tells the snapshot once, from where the mark is. `cannot` says of a failure that it cannot be
  // done so.
  Status Try(const Ends& ends, ChangeFinder& finder, ShipDigests& digests, ChangeMark& mark,
             Shipment& shipment, WriteBack& writeBack, bool& cannot) const;
  // All has been told. What is then found to be wrong is not gone on with.
  Status End(ShipDigests& digests, ChangeMark& mark, Shipment& shipment);
  // Leaves nothing of what has arrived, durably said so by the mark.
  Status Discard(ChangeMark& mark, bool hasArrived) const;
  Status OfSink(int error) const;

  const ShipSource& source_;
  const ShipSink& sink_;
  const std::string& snap_id_;
  const std::string& base_id_;
  bool is_done_ = false;
};

}  // namespace VrelDR::Local
