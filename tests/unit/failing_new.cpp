#include "failing_new.h"

#include <atomic>
#include <new>

namespace unit {
namespace {

// How many allocations go well before one fails; negative when none does.
std::atomic<int>& Countdown() {
  static std::atomic<int> countdown{-1};
  return countdown;
}

bool IsToFail() {
  return Countdown() >= 0 && Countdown()-- == 0;
}

}  // namespace

FailingNew::FailingNew(int after) {
  Countdown() = after;
}
FailingNew::~FailingNew() {
  Countdown() = -1;
}
bool FailingNew::HasFailed() const {
  return Countdown() < 0;
}

}  // namespace unit

// What it gives is released by the ordinary operator delete.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  if (unit::IsToFail()) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
