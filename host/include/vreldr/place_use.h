#pragma once

namespace VrelDR {

// What is about to be done to the place where a target's bytes are.
enum class PlaceUse {
  kSnapshot,     // its bytes are read
  kReplacement,  // other bytes come into it: it is restored, or takes over with a snapshot
  kDemotion,     // it is made unwritable
  kRemoval,      // it goes, with its snapshots
};

}  // namespace VrelDR
