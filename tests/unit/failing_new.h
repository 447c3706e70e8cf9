#pragma once

namespace unit {

// Makes one non-throwing allocation of the program yield null: the next one, or that after a number
// of others. One at a time; it ends with the object.
class FailingNew {
 public:
  explicit FailingNew(int after = 0);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  // Whether that allocation has been asked for.
  bool HasFailed() const;
};

}  // namespace unit
