#pragma once

#include <string>
#include <vector>

// fsync as the program and the shared libraries in it call it. The test program takes the function
// over, writes down what is brought to disk, and hands the call on to the kernel.
namespace test_support {

// Collects from its construction on. One at a time in a program.
class SyncRecord {
 public:
  SyncRecord();
  ~SyncRecord();
  SyncRecord(const SyncRecord&) = delete;
  SyncRecord& operator=(const SyncRecord&) = delete;

  // What was brought to disk, in order, each by the path that it had then.
  std::vector<std::string> Paths() const;
  void Clear();

  // From now on bringing `path` to disk fails; the empty text ends that.
  void Fail(const std::string& path);
};

}  // namespace test_support
