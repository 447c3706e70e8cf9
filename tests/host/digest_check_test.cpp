#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <random>

#include "base/fd.h"
#include "engine/local/digest_check.h"
#include "engine/local/digest_compare.h"
#include "engine/local/digest_file.h"
#include "engine/local/digest_writer.h"
#include "engine_fixture.h"

// What passes through the ends of a shipment is held against the digests that were kept.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using VrelDR::Fd;
using VrelDR::Status;
using VrelDR::Local::DigestCheck;
using VrelDR::Local::DigestFile;
using VrelDR::Local::DigestKeeper;
using VrelDR::Local::DigestWriter;

constexpr std::uint32_t kChunk = 4096;

class DigestCheckTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/var/digest-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    root_ = name;
    dir_ = Fd(open(name, O_RDONLY | O_DIRECTORY));
  }
  void TearDown() override { fs::remove_all(root_); }

  // Keeps the digests of a file "f" of these bytes.
  void Keep(const std::string& bytes) {
    DigestWriter writer(dir_.Get(), "kept", kChunk);
    writer.BeginFile("f", bytes.size());
    writer.AddData(0, bytes.data(), bytes.size());
    writer.EndFile();
    ASSERT_TRUE(writer.Finish());
    ASSERT_EQ(DigestFile::Open(dir_.Get(), "kept", kept_), 0);
  }
  const DigestFile& Kept() const { return kept_.value(); }
  int Dir() const { return dir_.Get(); }

  // What the check says of a part of the file, told as a hole or in pieces of that size.
  Status Tell(DigestCheck& check, const std::string& bytes, std::size_t begin, std::size_t end,
              std::size_t piece) {
    Status status;
    for (std::size_t at = begin; status.IsOk() && at < end; at += piece) {
      const std::size_t count = std::min(piece, end - at);
      const std::string_view part(bytes.data() + at, count);
      const bool isZero = part.find_first_not_of('\0') == std::string::npos;
      status = isZero ? check.Hole(at, count) : check.Data(at, {part.data(), count});
    }
    return status;
  }
  Status TellAll(const std::string& bytes, std::size_t begin, std::size_t end, std::size_t piece) {
    DigestCheck check(Kept(), "/v/s1");
    Status status = check.BeginFile("f", bytes.size());
    if (status.IsOk()) status = Tell(check, bytes, begin, end, piece);
    return status.IsOk() ? check.EndFile() : status;
  }

 private:
  std::string root_;
  Fd dir_;
  std::optional<DigestFile> kept_;
};

std::string SparseBytes() {
  std::string bytes(kChunk * 12 + 100, '\0');
  for (const std::size_t at : {std::size_t{10}, std::size_t{kChunk * 3}, std::size_t{kChunk * 9}}) {
    bytes.replace(at, kChunk + 7, RandomBytes(kChunk + 7));
  }
  return bytes;
}

TEST_F(DigestCheckTest, WhatIsAsItWasIsGoodInWhateverPieces) {
  const std::string bytes = SparseBytes();
  Keep(bytes);
  for (const std::size_t piece :
       {std::size_t{1000}, std::size_t{kChunk}, std::size_t{kChunk * 5}, std::size_t{100'000}}) {
    EXPECT_EQ(TellAll(bytes, 0, bytes.size(), piece).message, "") << piece;
    EXPECT_EQ(TellAll(bytes, 5, bytes.size() - 5, piece).message, "") << piece;
    EXPECT_EQ(TellAll(bytes, kChunk * 3, kChunk * 11, piece).message, "") << piece;
  }
  // Runs with others between them that are not told.
  DigestCheck check(Kept(), "/v/s1");
  Status status = check.BeginFile("f", bytes.size());
  for (const std::size_t chunk : {1, 3, 4, 8, 12}) {
    const std::size_t end = std::min<std::size_t>(bytes.size(), (chunk + 1) * kChunk);
    if (status.IsOk()) status = Tell(check, bytes, chunk * kChunk, end, 3000);
  }
  EXPECT_EQ(status.message, "");
}

TEST_F(DigestCheckTest, EveryByteThatIsNotWhatItWasIsFound) {
  const std::string bytes = SparseBytes();
  Keep(bytes);
  std::mt19937 random(3);
  for (int round = 0; round < 300; ++round) {
    const std::size_t at = round == 0 ? bytes.size() - 1 : random() % bytes.size();
    std::string changed = bytes;
    ++changed[at];
    const std::size_t piece = 1 + random() % (kChunk * 4);
    const Status status = TellAll(changed, 0, changed.size(), piece);
    ASSERT_EQ(status.code, VrelDR::kErrIo) << at << " in pieces of " << piece;
    EXPECT_THAT(status.message, HasSubstr("/v/s1/f"));
    EXPECT_THAT(status.message, HasSubstr("byte " + std::to_string(at - at % kChunk) + " on"));
  }
}

TEST_F(DigestCheckTest, ZerosInThePlaceOfDataAreFound) {
  const std::string bytes = SparseBytes();
  Keep(bytes);
  const std::string zeros(bytes.size(), '\0');
  EXPECT_THAT(TellAll(zeros, 0, zeros.size(), zeros.size()).message, HasSubstr("byte 0 on"));
  const Status later = TellAll(zeros, kChunk * 5, zeros.size(), zeros.size());
  EXPECT_THAT(later.message, HasSubstr("byte " + std::to_string(kChunk * 9) + " on"));
}

TEST_F(DigestCheckTest, AnotherSizeAndAFileThatWasNotThereAreFound) {
  const std::string bytes = SparseBytes();
  Keep(bytes);
  DigestCheck check(Kept(), "/v/s1");
  EXPECT_THAT(check.BeginFile("f", bytes.size() + 1).message,
              HasSubstr("byte " + std::to_string(bytes.size()) + " on"));
  EXPECT_THAT(check.BeginFile("g", 0).message, HasSubstr("/v/s1/g"));
  EXPECT_EQ(check.BeginFile("f", bytes.size()).message, "");
}

TEST_F(DigestCheckTest, WhatArrivesHasTheDigestsThatWereKept) {
  const std::string bytes = SparseBytes();
  Keep(bytes);
  DigestWriter writer(Dir(), "arrived", kChunk);
  DigestKeeper keeper(writer);
  EXPECT_TRUE(keeper.BeginFile("f", bytes.size()).IsOk());
  EXPECT_TRUE(keeper.Data(0, {bytes.data(), kChunk * 5}).IsOk());
  EXPECT_TRUE(keeper.Hole(kChunk * 5, kChunk * 4).IsOk());
  EXPECT_TRUE(keeper.Data(kChunk * 9, std::span(bytes).subspan(kChunk * 9)).IsOk());
  EXPECT_TRUE(keeper.EndFile().IsOk());
  ASSERT_TRUE(writer.Finish());
  std::optional<DigestFile> arrived;
  ASSERT_EQ(DigestFile::Open(Dir(), "arrived", arrived), 0);
  std::optional<VrelDR::Local::DigestDifference> difference;
  EXPECT_EQ(VrelDR::Local::CompareDigests(Kept(), *arrived, difference), 0);
  EXPECT_FALSE(difference);
}

}  // namespace
}  // namespace host_test
