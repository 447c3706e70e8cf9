#pragma once

#include <string>
#include <vector>

#include "hold/writer_hold.h"
#include "target/cut_writers.h"

namespace VrelDR {

// The writers of a group, held by the means that it has.
class HeldWriters : public CutWriters {
 public:
  explicit HeldWriters(const QuiesceMeans& means) : means_(means), hold_(means) {}

  Status Check() override { return AreHeld() ? hold_.Check() : Status(); }
  Status Hold() override { return AreHeld() ? hold_.Hold() : Status(); }
  Status Release() override {
    HoldEnd end;
    Status status = AreHeld() ? hold_.Release(end) : Status();
    troubles_ = std::move(end.troubles);
    return status;
  }
  bool AreHeld() const override { return !means_.IsEmpty(); }
  bool AreConsistent() const override { return means_.IsAppConsistent(); }

  // What could not be let go on, a line for each.
  const std::vector<std::string>& GetTroubles() const { return troubles_; }

 private:
  QuiesceMeans means_;
  WriterHold hold_;
  std::vector<std::string> troubles_;
};

}  // namespace VrelDR
