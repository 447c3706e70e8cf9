#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "target/target_lock.h"
#include "vreldr/snapshot.h"

namespace VrelDR {

// A member of a cut that nobody has taken up yet: it is made, settled and recorded as one that is
// being taken.
struct CutPart {
  Operation::Snapshot snapshot;  // with the time that it is going to have
  TargetLock lock;               // of its target
};

// What the cuts of this process have to be taken up, by target: any thread may do that. A process
// that was forked off finds nothing here.
namespace CutParts {

using Part = std::pair<std::string, CutPart>;  // a target's

// Lets all members of a cut be taken up.
void Offer(const std::string& cutId, std::vector<Part> parts);
// The end of a cut: what nobody has borrowed is returned, and what somebody has is not given back.
std::vector<Part> Withdraw(const std::string& cutId);
// Whether the target has one that nobody has borrowed.
bool Has(const std::string& targetId);

// The plan has a snapshot of the cut in hand, which its syncs in this process send as their own
// until the cut goes.
void NoteInHand(const std::string& cutId, const std::string& planId, const std::string& snapId);
bool IsInHand(const std::string& planId, const std::string& snapId);

}  // namespace CutParts

// A part in the hands of one who may take it up, and who alone has the right to change its target.
// Unless it was spent it is given back when the object goes; the right ends then, or with the part.
class BorrowedPart {
 public:
  // Null when the target has none that nobody else has borrowed.
  static std::unique_ptr<BorrowedPart> Of(const std::string& targetId);
  ~BorrowedPart();
  BorrowedPart(const BorrowedPart&) = delete;
  BorrowedPart& operator=(const BorrowedPart&) = delete;

  const Operation::Snapshot& GetSnapshot() const { return part_.snapshot; }
  // It was taken up, or has failed to be.
  void Spend() { is_spent_ = true; }

 private:
  BorrowedPart(std::string targetId, CutPart part)
      : target_id_(std::move(targetId)), part_(std::move(part)) {}

  std::string target_id_;
  CutPart part_;
  bool is_spent_ = false;
};

}  // namespace VrelDR
