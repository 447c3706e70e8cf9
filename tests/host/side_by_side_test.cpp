#include "engine/support/side_by_side.h"

#include <gtest/gtest.h>

#include "vreldr/error.h"

// What is done for several targets at a time within one operation.

namespace host_test {
namespace {

using VrelDR::Job;
using VrelDR::Status;
using VrelDR::Watcher;

TEST(RunSideBySideTest, WhatFailedFirstIsToldAndNotThatTheOthersWereStopped) {
  const std::vector<Job> jobs = {[](Watcher& watcher) {
                                   while (watcher.GoesOn()) {
                                   }
                                   return Status{VrelDR::kErrStopped, "was stopped"};
                                 },
                                 [](Watcher&) {
                                   return Status{VrelDR::kErrIo, "the disk failed"};
                                 }};
  Watcher watcher;
  // The one that is stopped may be the faster to say so.
  for (int round = 0; round < 2000; ++round) {
    const Status status = RunSideBySide(jobs, jobs.size(), watcher);
    ASSERT_EQ(status.code, VrelDR::kErrIo) << "round " << round << ": " << status.message;
  }
}

}  // namespace
}  // namespace host_test
