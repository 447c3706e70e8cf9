#include "engine/local/send_stream.h"

#include <gtest/gtest.h>

#include <string>

namespace host_test {
namespace {

using VrelDR::Local::SendStreamSizer;

std::string Number(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
  return text;
}

std::string Attribute(int kind, const std::string& value) {
  return Number(static_cast<std::uint64_t>(kind), 2) + Number(value.size(), 2) + value;
}

std::string Command(int kind, const std::string& attributes) {
  return Number(attributes.size(), 4) + Number(static_cast<std::uint64_t>(kind), 2) +
         Number(0x12345678, 4) + attributes;
}

const std::string kHeader = std::string("btrfs-stream", 13) + Number(1, 4);

// Two extents of a file, with other commands around them.
std::string SampleStream() {
  const std::string path = Attribute(15, "disk.img");
  return kHeader + Command(3, path + Attribute(3, Number(257, 8))) +
         Command(22, path + Attribute(18, Number(0, 8)) + Attribute(4, Number(1000, 8))) +
         Command(22,
                 path + Attribute(18, Number(1000, 8)) + Attribute(4, Number(5'000'000'000, 8))) +
         Command(17, path + Attribute(4, Number(77, 8))) + Command(21, "");
}

TEST(SendStreamSizer, CountsTheStreamAndTheExtentsThatItNames) {
  SendStreamSizer sizer;
  EXPECT_EQ(sizer.GetSize(), 0u);
  sizer.Feed(SampleStream());
  EXPECT_EQ(sizer.GetSize(), SampleStream().size() + 5'000'001'000);
}

TEST(SendStreamSizer, TakesTheStreamCutAnywhere) {
  const std::string stream = SampleStream();
  for (std::size_t size = 1; size <= stream.size(); ++size) {
    SendStreamSizer sizer;
    for (std::size_t at = 0; at < stream.size(); at += size) sizer.Feed(stream.substr(at, size));
    EXPECT_EQ(sizer.GetSize(), stream.size() + 5'000'001'000) << size;
  }
}

TEST(SendStreamSizer, CountsAnUnknownStreamWithItsOwnBytes) {
  const std::string stream(1000, 'x');
  SendStreamSizer sizer;
  sizer.Feed(stream);
  sizer.Feed(SampleStream());
  EXPECT_EQ(sizer.GetSize(), stream.size() + SampleStream().size());
}

TEST(SendStreamSizer, IsNotMisledByDamagedLengths) {
  const std::string tooLong = Number(22, 2) + Number(60000, 2) + "short";
  SendStreamSizer sizer;
  sizer.Feed(kHeader + Command(22, tooLong) + Command(22, "x"));
  EXPECT_EQ(sizer.GetSize(), kHeader.size() + 10 + tooLong.size() + 10 + 1);
}

}  // namespace
}  // namespace host_test
