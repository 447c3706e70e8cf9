#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the program, and the shared libraries in it, do to some files. The test program takes the
// calls over, writes them down, and hands them on to the kernel.
namespace test_support {

struct WriteStep {
  enum class Kind {
    kWrite,    // `bytes` at `offset` of the file
    kSize,     // the file ends at `offset` now
    kSync,     // what was done to the file is on disk
    kSyncDir,  // the names in the directory are
    kRemove,   // the name `path` is gone
  };
  Kind kind = Kind::kWrite;
  std::string path;
  std::uint64_t offset = 0;
  std::string bytes;
};

// Collects from its construction on: of the files whose paths begin with `prefix`, and of the
// directory that they are in. Knows pwrite64, ftruncate64, fdatasync, fsync and unlink. One at a
// time in a program.
class WriteRecord {
 public:
  explicit WriteRecord(const std::string& prefix);
  ~WriteRecord();
  WriteRecord(const WriteRecord&) = delete;
  WriteRecord& operator=(const WriteRecord&) = delete;

  std::size_t Count() const;
  std::vector<WriteStep> Steps() const;
};

}  // namespace test_support
