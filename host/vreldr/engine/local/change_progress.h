#pragma once

#include <algorithm>
#include <cstdint>

#include "engine/local/shipment.h"

namespace VrelDR::Local {

// How far a shipment by changes is, for both of its ends: of the bytes of all files how many are
// done, whether they were told or come from the base, and how many were told.
class ChangeProgress {
 public:
  ChangeProgress(Shipment& shipment, std::uint64_t total) : shipment_(shipment), total_(total) {}

  // The file in hand is done up to there. A failure when the call is to end; see Shipment::Tell.
  Status Reach(std::uint64_t offset) {
    reached_ = std::max(reached_, offset);
    return Tell();
  }
  Status Send(std::uint64_t count) {
    sent_ += count;
    return Tell();
  }
  // The entry in hand, of `size` bytes, is done.
  Status EndEntry(std::uint64_t size) {
    ended_ += size;
    reached_ = 0;
    return Tell();
  }
  // All is there.
  Status End() { return shipment_.TellAll(total_, sent_); }

  Watch& GetWatch() { return shipment_.GetWatch(); }

 private:
  // Steps are its own activity: there are entries without bytes.
  Status Tell() { return shipment_.Tell(ended_ + reached_, total_, sent_, ++steps_); }

  Shipment& shipment_;
  std::uint64_t total_;
  std::uint64_t ended_ = 0, reached_ = 0, sent_ = 0, steps_ = 0;
};

}  // namespace VrelDR::Local
