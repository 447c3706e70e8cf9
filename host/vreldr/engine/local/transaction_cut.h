#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/fd.h"
#include "engine/cut.h"
#include "engine/local/commit_window.h"

namespace VrelDR::Local {

// Read-only snapshots of several subvolumes of one btrfs, made in one transaction of it. All
// snapshots of a transaction are made when nobody else can take part in it any more, and what was
// acknowledged as durable before is in it: so they are of one instant, whoever writes and however.
// In which transaction each one was made is compared afterwards; that is the proof.
class TransactionCut {
 public:
  struct Part {
    std::string target_id;  // for messages
    Fd source;              // the subvolume
    Fd parent;  // a directory of its own: creations in one directory wait for each other
    std::string name;

    // Of the last try.
    Status status = {};
    bool is_made = false;
    std::uint64_t transaction = 0;
  };

  // `ownFd` is of a volume's ".vreldr" on the file system, and stays open longer than this object.
  TransactionCut(int ownFd, std::vector<Part> parts) : window_(ownFd), parts_(std::move(parts)) {}
  ~TransactionCut() { EndThreads(); }
  TransactionCut(const TransactionCut&) = delete;
  TransactionCut& operator=(const TransactionCut&) = delete;

  // Starts a thread for each part: a call for a snapshot comes back when its transaction is on
  // disk, so all have to be made at a time.
  Status Prepare();
  // Tries until all are in one transaction, but not without end: what the last try made stays, and
  // the outcome says what it is. A failure leaves none.
  Status Take(Watcher& watcher, CutOutcome& outcome);

 private:
  static void Make(Part& part);
  void Work(Part& part);
  // Makes all snapshots at once.
  Status Try(int files, CutOutcome& outcome);
  // Of the last try: what failed first, and whether all are of one transaction.
  Status GetStatus() const;
  bool IsOneTransaction() const;
  // Removes those that the last try has made.
  Status Remove();
  void EndThreads();

  CommitWindow window_;
  std::vector<Part> parts_;
  std::atomic<int> round_ = 0;    // a new one lets all threads go
  std::atomic<int> at_work_ = 0;  // threads that do not wait for a round
  std::atomic<bool> is_over_ = false;
  std::vector<std::jthread> threads_;  // last: they use the others
};

}  // namespace VrelDR::Local
