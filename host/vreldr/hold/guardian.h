#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "base/fd.h"
#include "base/status.h"
#include "hold/guard.h"
#include "hold/runnable.h"

namespace VrelDR {

// One writer, and what is open of it.
struct HeldWriter {
  std::string name;  // for people, such as: control group "/sys/fs/cgroup/db"
  GuardThing::Stage stage = GuardThing::kCommand;
  Runnable freeze;
  Runnable thaw;
  bool is_v2 = false;
  Fd control;  // of a control group; see GuardThing
  Fd intent;
  Fd state;
};

// The process that holds writers for this one: a clone, which nothing that ends this process ends
// as well. This process never waits for it by accident, and gets no signal of its end.
class Guardian {
 public:
  using Clock = std::chrono::steady_clock;

  Guardian() = default;
  // Has everything thawed that may stand still, and waits for that.
  ~Guardian();
  Guardian(const Guardian&) = delete;
  Guardian& operator=(const Guardian&) = delete;

  // Prepares everything and starts the process, which freezes nothing before it is told to, and
  // thaws everything at the deadline. What is told of times counts from `begun`. The writers have
  // to live as long as this object.
  Status Start(std::vector<HeldWriter>& writers, Clock::time_point begun,
               Clock::time_point deadline);
  // Tells it to freeze. True when all stand still; false when all was thawed again.
  bool Freeze();
  // Tells it to thaw, and waits for that. When it is gone, which nothing but a kill of it explains,
  // another one is started that thaws.
  void Thaw();

  // Valid once Freeze has failed, or Thaw has returned.
  const GuardBoard& GetBoard() const { return *board_; }
  const GuardSlot& GetSlot(std::size_t writer) const { return slots_[writer]; }
  // Whether it had gone before it was told to thaw.
  bool WasLost() const { return was_lost_; }
  pid_t GetPid() const { return pid_; }

 private:
  Status ShareBoard(std::size_t count);
  void Describe(std::vector<HeldWriter>& writers);
  Status Launch(bool onlyThaws);
  char Hear();
  void Reap();

  GuardBoard* board_ = nullptr;
  GuardSlot* slots_ = nullptr;
  std::size_t shared_size_ = 0;
  char* stacks_ = nullptr;
  Environment environment_;
  std::vector<GuardThing> things_;
  std::vector<Fd> roots_;
  std::vector<struct pollfd> polled_;
  Clock::time_point deadline_;
  Fd words_;
  pid_t pid_ = -1;
  bool is_done_ = true;  // nothing can stand still
  bool was_lost_ = false;
};

}  // namespace VrelDR
