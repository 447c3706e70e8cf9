#include "engine/local/send_stream.h"

#include <algorithm>
#include <cstring>

namespace VrelDR::Local {

namespace {

// The stream, little-endian throughout: a text with its zero and a version of 4 bytes; then
// commands, each with a length of 4 bytes (without these 10), a kind of 2, a checksum of 4, and
// attributes, each with a kind of 2 bytes, a length of 2 and the value.
constexpr std::string_view kMagic = "btrfs-stream";
constexpr std::size_t kHeader = kMagic.size() + 1 + 4;
constexpr std::size_t kCommandHeader = 10;
constexpr std::size_t kAttributeHeader = 4;
constexpr std::uint64_t kUpdateExtent = 22;  // stands for the commands with the data of an extent
constexpr std::uint64_t kSize = 4;           // attribute: how many bytes
constexpr std::uint64_t kPath = 15;          // attribute: what the command is about
constexpr std::uint64_t kPathTo = 16;        // attribute: its new path

std::uint64_t ReadNumber(std::string_view bytes, std::size_t at, std::size_t count) {
  std::uint64_t number = 0;
  for (std::size_t i = count; i-- > 0;) {
    number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  }
  return number;
}

std::size_t LongestPath(std::string_view attributes) {
  std::size_t longest = 0;
  while (attributes.size() >= kAttributeHeader) {
    const std::uint64_t kind = ReadNumber(attributes, 0, 2);
    const std::uint64_t length = ReadNumber(attributes, 2, 2);
    attributes.remove_prefix(kAttributeHeader);
    if (length > attributes.size()) break;
    if (kind == kPath || kind == kPathTo) longest = std::max<std::size_t>(longest, length);
    attributes.remove_prefix(length);
  }
  return longest;
}

std::uint64_t ExtentSize(std::string_view attributes) {
  while (attributes.size() >= kAttributeHeader) {
    const std::uint64_t kind = ReadNumber(attributes, 0, 2);
    const std::uint64_t length = ReadNumber(attributes, 2, 2);
    attributes.remove_prefix(kAttributeHeader);
    if (length > attributes.size()) return 0;
    if (kind == kSize && length == 8) return ReadNumber(attributes, 0, 8);
    attributes.remove_prefix(length);
  }
  return 0;
}

}  // namespace

void SendStreamSizer::Feed(std::string_view piece) {
  size_ += piece.size();
  if (is_unknown_) return;
  rest_ += piece;
  std::string_view left = rest_;
  if (!after_header_) {
    if (left.size() < kHeader) return;
    is_unknown_ = left.substr(0, kMagic.size()) != kMagic;
    if (is_unknown_) return;
    left.remove_prefix(kHeader);
    after_header_ = true;
  }
  while (left.size() >= kCommandHeader) {
    const std::uint64_t length = ReadNumber(left, 0, 4);
    if (left.size() - kCommandHeader < length) break;
    if (ReadNumber(left, 4, 2) == kUpdateExtent) {
      size_ += ExtentSize(left.substr(kCommandHeader, length));
    }
    longest_path_ = std::max(longest_path_, LongestPath(left.substr(kCommandHeader, length)));
    left.remove_prefix(kCommandHeader + length);
  }
  rest_.erase(0, rest_.size() - left.size());
}

}  // namespace VrelDR::Local
