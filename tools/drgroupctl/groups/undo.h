#pragma once

#include <functional>
#include <utility>
#include <vector>

namespace drgroupctl {

// Steps to be undone, the last one first, unless everything went well.
class Undo {
 public:
  Undo() = default;
  Undo(const Undo&) = delete;
  Undo& operator=(const Undo&) = delete;
  ~Undo() {
    for (auto step = steps_.rbegin(); step != steps_.rend(); ++step) (*step)();
  }
  // A step may not throw.
  void Add(std::function<void()> step) { steps_.push_back(std::move(step)); }
  void Dismiss() { steps_.clear(); }

 private:
  std::vector<std::function<void()>> steps_;
};

}  // namespace drgroupctl
