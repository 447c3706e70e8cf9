#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "base/fd.h"

namespace VrelDR::Local {

// Where the next byte of data of a file is, from `at` on; `end` where there is none before that.
// Where the file system does not tell holes all is data. 0 or an errno.
int FindData(int fd, std::uint64_t at, std::uint64_t end, std::uint64_t& data);
// The same for the next hole.
int FindHole(int fd, std::uint64_t at, std::uint64_t end, std::uint64_t& hole);

// Finds the data of a file that nobody changes, in ascending order. What was found once is not
// asked for again: to find the end of data the system goes along all of its extents.
class DataFinder {
 public:
  // `fd` stays open longer than this object.
  explicit DataFinder(int fd) : fd_(fd) {}

  // The next data from `at` on and its end, both at most `end`, which is more than `at`; there is
  // none when `data` is `end`. 0 or an errno.
  int Find(std::uint64_t at, std::uint64_t end, std::uint64_t& data, std::uint64_t& dataEnd);

 private:
  int fd_;
  // From `from_` to `data_` there is none, and all is data from there to `data_end_`.
  std::uint64_t from_ = 0, data_ = 0, data_end_ = 0;
};

// Reads as many bytes as there is room for. 0 or an errno: ESTALE when the file ends before.
int ReadFully(int fd, std::uint64_t at, std::span<char> bytes);

// Writes all of them. 0 or an errno.
int WriteFully(int fd, std::uint64_t at, std::span<const char> bytes);

// Opens an entry of a directory for reading, as OpenEntry does, without changing its time of access
// where that is allowed. It is to be a file or a directory.
Fd OpenQuietly(int dirFd, const std::string& name, int flags);

// The same of what is open, such as for O_PATH.
Fd ReopenQuietly(int fd);

}  // namespace VrelDR::Local
