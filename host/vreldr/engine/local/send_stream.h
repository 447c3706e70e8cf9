#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace VrelDR::Local {

// Reads the stream of "btrfs send --no-data" as it comes, and sums up how many bytes the same call
// with data would send, as nearly as that can be told.
class SendStreamSizer {
 public:
  // Takes in the next piece of the stream, cut anywhere.
  void Feed(std::string_view piece);

  // The most bytes that a path in it has.
  std::size_t GetLongestPath() const { return longest_path_; }
  // Of what was fed so far. A stream that is not one of a known form counts with its own bytes.
  std::uint64_t GetSize() const { return size_; }

 private:
  std::string rest_;  // the beginning of what is not whole yet
  bool after_header_ = false;
  bool is_unknown_ = false;
  std::uint64_t size_ = 0;
  std::size_t longest_path_ = 0;
};

}  // namespace VrelDR::Local
