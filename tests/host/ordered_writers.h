#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace host_test {

// Processes that write the numbers from 1 on into files of these directories: each number into the
// directory after that of the one before, and only when the one before is on disk. There is one for
// each way to bring a write to disk: by a sync, by a file that is opened so, and by a rename.
class OrderedWriters {
 public:
  // They work in this control group, if it is one.
  explicit OrderedWriters(const std::vector<std::string>& dirs, const std::string& group = "");
  // Ends them.
  ~OrderedWriters();
  OrderedWriters(const OrderedWriters&) = delete;
  OrderedWriters& operator=(const OrderedWriters&) = delete;

  // Waits until every writer has been everywhere since. False when one of them has failed.
  bool GoRound() const;

 private:
  std::size_t dir_count_;
  std::vector<pid_t> pids_;
  std::atomic<std::uint64_t>* written_;  // the last number of each, in memory that all share
};

// Whether these, which hold what such directories held once, in the same order, hold of each writer
// all that was written before the last number that they hold.
bool HoldAllInOrder(const std::vector<std::string>& dirs);

}  // namespace host_test
