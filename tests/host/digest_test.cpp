#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <random>

#include "base/fd.h"
#include "engine/local/digest_changes.h"
#include "engine/local/digest_compare.h"
#include "engine/local/digest_file.h"
#include "engine/local/digest_format.h"
#include "engine/local/digest_writer.h"
#include "engine_fixture.h"
#include "tree.h"

// Digests of files as they stand in their file, and what is found by them.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDR::Fd;
using VrelDR::Local::CompareDigests;
using VrelDR::Local::Digest;
using VrelDR::Local::DigestChanges;
using VrelDR::Local::DigestCursor;
using VrelDR::Local::DigestDifference;
using VrelDR::Local::DigestFile;
using VrelDR::Local::DigestOf;
using VrelDR::Local::DigestWriter;
using VrelDR::Local::FindDifferences;

constexpr std::uint32_t kChunk = 4096;

using Part = VrelDR::Local::Run;

// Of each file its bytes, by its path.
using Files = std::map<std::string, std::string>;

class DigestTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/var/digest-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    root_ = name;
    dir_ = Fd(open(name, O_RDONLY | O_DIRECTORY));
  }
  void TearDown() override { fs::remove_all(root_); }

  std::string PathOf(const std::string& name) const { return root_ + "/" + name; }
  int Dir() const { return dir_.Get(); }

  bool Write(const std::string& name, const Files& files, std::uint32_t chunk = kChunk) const {
    DigestWriter writer(Dir(), name, chunk);
    for (const auto& [path, bytes] : files) {
      writer.BeginFile(path, bytes.size());
      writer.AddData(0, bytes.data(), bytes.size());
      writer.EndFile();
    }
    return writer.Finish();
  }

  int TryOpen(const std::string& name) const {
    std::optional<DigestFile> file;
    const int error = DigestFile::Open(Dir(), name, file);
    EXPECT_EQ(error == 0, file.has_value());
    return error;
  }
  DigestFile Open(const std::string& name) const {
    std::optional<DigestFile> file;
    EXPECT_EQ(DigestFile::Open(Dir(), name, file), 0) << name;
    return std::move(file.value());
  }

  // What is found by the digests of two files of one path, "f".
  static std::vector<Part> Differences(const DigestFile& one, const DigestFile& other) {
    std::optional<DigestCursor> left;
    std::optional<DigestCursor> right;
    EXPECT_EQ(one.Find("f", left), 0);
    EXPECT_EQ(other.Find("f", right), 0);
    std::vector<Part> runs;
    EXPECT_EQ(FindDifferences(left.value(), right.value(), one.GetChunkSize(), runs), 0);
    return runs;
  }

  // Puts the right digest at the end of what a test has made up.
  void WriteSealed(const std::string& name, std::string bytes) const {
    bytes.resize(bytes.size() - sizeof(Digest));
    const Digest digest = DigestOf(bytes.data(), bytes.size());
    bytes.append(reinterpret_cast<const char*>(digest.bytes.data()), digest.bytes.size());
    WriteFile(PathOf(name), bytes);
  }

 private:
  std::string root_;
  Fd dir_;
};

std::string Pattern(std::size_t count, char first) {
  std::string bytes(count, first);
  for (std::size_t i = 0; i < count; i += 512) bytes[i] = static_cast<char>(i / 512);
  return bytes;
}

TEST_F(DigestTest, TheBytesOnDiskAreThoseOfVersionOne) {
  DigestWriter writer(Dir(), "d", kChunk);
  writer.BeginFile("a/b", kChunk * 3 + 5);
  writer.AddData(kChunk * 2, "hello", 5);
  writer.EndFile();
  writer.AddName("c", "a/b");
  ASSERT_TRUE(writer.Finish());
  std::string text;
  for (const char each : ReadFile(PathOf("d"))) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[static_cast<unsigned char>(each) >> 4];
    text += kDigits[static_cast<unsigned char>(each) & 15];
  }
  EXPECT_EQ(text,
            "7672646967657374010000000100000000100000"
            "01030000000530000000000000612f62"
            "0200008002000000"
            "a6965f81c942958a60b4b44d3e69e739"
            "c61571a9fa58278456b1430ea9e34626"
            "02010000000300000063612f62"
            "000200000000000000"
            "7c332ac07262dee86f85325c7a8e3520");
}

TEST_F(DigestTest, ADigestIsThatOfThePublishedAlgorithm) {
  // XXH3 of 128 bits of nothing, in its canonical form.
  const Digest digest = DigestOf("", 0);
  const std::string bytes(digest.bytes.begin(), digest.bytes.end());
  EXPECT_EQ(bytes, "\x99\xaa\x06\xd3\x01\x47\x98\xd8\x60\x01\xc3\x24\x46\x8d\x49\x7f");
}

TEST_F(DigestTest, WhatDiffersIsFoundByChunks) {
  const std::string bytes = Pattern(kChunk * 8 + 100, 'x');
  std::string changed = bytes;
  changed[kChunk] = '!';
  changed[kChunk * 3 - 1] = '!';
  changed[kChunk * 5 + 7] = '!';
  changed[kChunk * 8 + 99] = '!';
  ASSERT_TRUE(Write("one", {{"f", bytes}}));
  ASSERT_TRUE(Write("other", {{"f", changed}}));
  EXPECT_THAT(
      Differences(Open("one"), Open("other")),
      ElementsAre(Part{kChunk, 2 * kChunk}, Part{5 * kChunk, kChunk}, Part{8 * kChunk, 100}));
  EXPECT_THAT(Differences(Open("one"), Open("one")), IsEmpty());
}

TEST_F(DigestTest, FilesOfDifferentSizesAreComparedUpToTheShorterOne) {
  const std::string bytes = Pattern(kChunk * 4, 'x');
  ASSERT_TRUE(Write("4", {{"f", bytes}}));
  ASSERT_TRUE(Write("3", {{"f", bytes.substr(0, kChunk * 3)}}));
  ASSERT_TRUE(Write("3+", {{"f", bytes.substr(0, kChunk * 3 + 1)}}));
  ASSERT_TRUE(Write("0", {{"f", {}}}));
  EXPECT_THAT(Differences(Open("4"), Open("3")), IsEmpty());
  EXPECT_THAT(Differences(Open("3"), Open("4")), IsEmpty());
  // Nobody can tell of a chunk that ends in one of them alone.
  EXPECT_THAT(Differences(Open("4"), Open("3+")), ElementsAre(Part{kChunk * 3, 1}));
  EXPECT_THAT(Differences(Open("3+"), Open("4")), ElementsAre(Part{kChunk * 3, 1}));
  EXPECT_THAT(Differences(Open("0"), Open("4")), IsEmpty());
  EXPECT_THAT(Differences(Open("0"), Open("0")), IsEmpty());
}

TEST_F(DigestTest, HolesAreZerosHoweverTheyAreTold) {
  const std::string zeros(kChunk * 3, '\0');
  const auto write = [&](const std::string& name, const auto& tell) {
    DigestWriter writer(Dir(), name, kChunk);
    writer.BeginFile("f", kChunk * 9 + 10);
    tell(writer);
    writer.EndFile();
    ASSERT_TRUE(writer.Finish());
  };
  write("hole", [](DigestWriter& writer) { writer.AddData(kChunk * 4 + 5, "x", 1); });
  write("zeros", [&](DigestWriter& writer) {
    writer.AddData(0, zeros.data(), zeros.size());
    writer.AddData(kChunk * 3 + 1, zeros.data(), kChunk);
    writer.AddData(kChunk * 4 + 5, "x", 1);
    writer.AddData(kChunk * 4 + 6, zeros.data(), zeros.size());
    writer.AddData(kChunk * 9 + 2, zeros.data(), 8);
  });
  EXPECT_THAT(Differences(Open("hole"), Open("zeros")), IsEmpty());
  EXPECT_EQ(ReadFile(PathOf("hole")), ReadFile(PathOf("zeros")));
}

TEST_F(DigestTest, ALargeHoleTakesUpNoRoom) {
  constexpr std::uint64_t kSize = std::uint64_t{1} << 50;
  DigestWriter writer(Dir(), "d");
  writer.BeginFile("f", kSize);
  writer.AddData(kSize - 1, "x", 1);
  writer.EndFile();
  ASSERT_TRUE(writer.Finish());
  EXPECT_LT(fs::file_size(PathOf("d")), 4096);
  std::optional<DigestCursor> cursor;
  const DigestFile file = Open("d");
  ASSERT_EQ(file.Find("f", cursor), 0);
  EXPECT_EQ(cursor.value().GetSize(), kSize);
  EXPECT_THAT(Differences(file, file), IsEmpty());
}

TEST_F(DigestTest, WhateverIsToldInWhateverPiecesTheDifferencesAreThoseOfTheBytes) {
  std::mt19937 random(7);
  const auto upTo = [&](std::size_t most) { return random() % (most + 1); };
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    const std::uint32_t chunk = kChunk << upTo(2);
    const auto size = [&] { return upTo(1) == 0 ? upTo(9) * chunk : upTo(chunk * 9); };
    std::string one(size(), '\0');
    for (std::size_t i = upTo(3); i > 0 && !one.empty(); --i) {
      const std::size_t at = upTo(one.size() - 1);
      const std::string bytes = RandomBytes(std::min(one.size() - at, upTo(chunk * 3)));
      one.replace(at, bytes.size(), bytes);
    }
    std::string other = one;
    other.resize(upTo(1) == 0 ? one.size() : size());
    for (std::size_t i = upTo(4); i > 0 && !other.empty(); --i) ++other[upTo(other.size() - 1)];

    const auto write = [&](const std::string& name, const std::string& bytes) {
      DigestWriter writer(Dir(), name, chunk);
      writer.BeginFile("f", bytes.size());
      for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t count = std::min(bytes.size() - at, 1 + upTo(chunk * 2));
        const bool isZero = bytes.find_first_not_of('\0', at) >= at + count;
        if (!isZero || upTo(1) == 0) writer.AddData(at, bytes.data() + at, count);
        at += count;
      }
      writer.EndFile();
      ASSERT_TRUE(writer.Finish());
    };
    write("one", one);
    write("other", other);
    const std::size_t both = std::min(one.size(), other.size());
    std::vector<Part> expected;
    for (std::size_t at = 0; at < both; at += chunk) {
      const bool isSame = one.substr(at, chunk) == other.substr(at, chunk);
      if (isSame) continue;
      const std::size_t end = std::min<std::size_t>(at + chunk, both);
      if (!expected.empty() && expected.back().offset + expected.back().length == at) {
        expected.back().length += end - at;
      } else {
        expected.push_back({at, end - at});
      }
    }
    EXPECT_EQ(Differences(Open("one"), Open("other")), expected);
  }
}

TEST_F(DigestTest, NamesAreAnyBytes) {
  const Files files = {{"plain", "1"},
                       {"a/b/c", "2"},
                       {"new\nline", "3"},
                       {"\xff\xfe", "4"},
                       {std::string(5000, 'n'), "5"}};
  ASSERT_TRUE(Write("d", files));
  const DigestFile file = Open("d");
  EXPECT_EQ(file.CountFiles(), files.size());
  for (const auto& [path, bytes] : files) {
    std::optional<DigestCursor> cursor;
    ASSERT_EQ(file.Find(path, cursor), 0);
    ASSERT_TRUE(cursor);
    EXPECT_EQ(cursor->GetSize(), 1);
  }
  std::optional<DigestCursor> none;
  EXPECT_EQ(file.Find("a/b", none), 0);
  EXPECT_FALSE(none);
}

TEST_F(DigestTest, AFileOfSeveralNamesIsFoundByEachOfThem) {
  DigestWriter writer(Dir(), "d", kChunk);
  const std::string bytes = Pattern(kChunk + 1, 'x');
  writer.BeginFile("first", bytes.size());
  writer.AddData(0, bytes.data(), bytes.size());
  writer.EndFile();
  writer.AddName("f", "first");
  writer.AddName("leads nowhere", "missing");
  writer.AddName("leads to a name", "f");
  ASSERT_TRUE(writer.Finish());
  ASSERT_TRUE(Write("plain", {{"f", bytes}}));
  const DigestFile file = Open("d");
  EXPECT_THAT(Differences(file, Open("plain")), IsEmpty());
  for (const char* path : {"leads nowhere", "leads to a name"}) {
    std::optional<DigestCursor> cursor;
    EXPECT_EQ(file.Find(path, cursor), 0);
    EXPECT_FALSE(cursor) << path;
  }
}

TEST_F(DigestTest, AHundredThousandPathsAreFound) {
  constexpr int kCount = 100'000;
  DigestWriter writer(Dir(), "d");
  for (int i = 0; i < kCount; ++i) {
    const std::string text = std::to_string(i);
    writer.BeginFile("folder" + std::to_string(i / 1000) + "/file" + text, text.size());
    writer.AddData(0, text.data(), text.size());
    writer.EndFile();
  }
  ASSERT_TRUE(writer.Finish());
  const DigestFile file = Open("d");
  ASSERT_EQ(file.CountFiles(), kCount);
  int wrong = 0;
  for (int i = 0; i < kCount; ++i) {
    const std::string text = std::to_string(i);
    std::optional<DigestCursor> cursor;
    DigestCursor::Chunks chunks;
    const int error = file.Find("folder" + std::to_string(i / 1000) + "/file" + text, cursor);
    const bool isFound = error == 0 && cursor && cursor->Next(1, chunks) == 0 && chunks.count == 1;
    const Digest digest = DigestOf(text.data(), text.size());
    if (!isFound || memcmp(chunks.digests, digest.bytes.data(), sizeof(Digest)) != 0) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
}

TEST_F(DigestTest, OneThatIsTornOrChangedIsNone) {
  ASSERT_TRUE(Write("d", {{"f", Pattern(kChunk * 2 + 1, 'x')}, {"g", ""}}));
  const std::string whole = ReadFile(PathOf("d"));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    WriteFile(PathOf("torn"), whole.substr(0, length));
    EXPECT_EQ(TryOpen("torn"), EBADMSG) << length;
  }
  WriteFile(PathOf("torn"), whole + '\0');
  EXPECT_EQ(TryOpen("torn"), EBADMSG);
  for (std::size_t at = 0; at < whole.size(); ++at) {
    std::string changed = whole;
    changed[at] = static_cast<char>(changed[at] ^ (1 << at % 8));
    WriteFile(PathOf("torn"), changed);
    EXPECT_EQ(TryOpen("torn"), EBADMSG) << at;
  }
  EXPECT_EQ(TryOpen("d"), 0);
}

TEST_F(DigestTest, OneOfSomebodyElseOrAnotherVersionIsNone) {
  ASSERT_TRUE(Write("d", {{"f", Pattern(kChunk, 'x')}}));
  const std::string whole = ReadFile(PathOf("d"));
  WriteSealed("same", whole);
  EXPECT_EQ(TryOpen("same"), 0);  // what follows is refused for what it says
  const auto refused = [&](std::size_t at, const std::string& bytes) {
    std::string changed = whole;
    changed.replace(at, bytes.size(), bytes);
    WriteSealed("other", changed);
    EXPECT_EQ(TryOpen("other"), EBADMSG) << at;
  };
  refused(0, "x");                          // magic
  refused(8, "\x02");                       // version
  refused(12, "\x02");                      // algorithm
  refused(16, std::string("\x00\x08", 2));  // chunks of 2 KiB
  refused(16, std::string("\x01\x10", 2));  // of 4097 bytes
  refused(20, "\x07");                      // kind of a record
  refused(21, "\xff\xff\xff\xff");          // length of a path
  refused(25, "\x01");                      // chunks of a size of 4097
  refused(34, "\x02");                      // more digests than chunks
  refused(34, std::string(4, '\0'));        // none
  refused(whole.size() - 24, "\x02");       // number of names
  WriteSealed("other", whole.substr(0, 20) + std::string(16, ' '));
  EXPECT_EQ(TryOpen("other"), EBADMSG);
  WriteSealed("other", whole.substr(0, whole.size() - 16) + "more" + std::string(16, ' '));
  EXPECT_EQ(TryOpen("other"), EBADMSG);
}

TEST_F(DigestTest, OneThatHasAPathTwiceIsNone) {
  DigestWriter writer(Dir(), "d");
  for (int i = 0; i < 2; ++i) {
    writer.BeginFile("f", 0);
    writer.EndFile();
  }
  ASSERT_TRUE(writer.Finish());
  EXPECT_EQ(TryOpen("d"), EBADMSG);
}

TEST_F(DigestTest, WhatIsNoFileIsNoneAndNobodyWaitsForIt) {
  ASSERT_TRUE(Write("d", {}));
  EXPECT_EQ(TryOpen("d"), 0);
  fs::create_symlink("d", PathOf("link"));
  fs::create_directory(PathOf("folder"));
  ASSERT_EQ(mkfifo(PathOf("pipe").c_str(), 0600), 0);
  WriteFile(PathOf("empty"), "");
  for (const char* name : {"link", "folder", "pipe", "empty"}) EXPECT_EQ(TryOpen(name), EBADMSG);
  EXPECT_EQ(TryOpen("missing"), ENOENT);
}

TEST_F(DigestTest, WhatIsNotFinishedOrNotAFilesBytesLeavesNothing) {
  const std::string much(kChunk * 70'000, 'x');
  const auto told = [&](const auto& tell) {
    DigestWriter writer(Dir(), "d", kChunk);
    tell(writer);
    return writer.Finish();
  };
  const auto begin = [&](DigestWriter& writer) { writer.BeginFile("f", much.size()); };
  {
    DigestWriter writer(Dir(), "d", kChunk);
    begin(writer);
    writer.AddData(0, much.data(), much.size());
    writer.EndFile();
    EXPECT_TRUE(fs::exists(PathOf("d")));  // it is written piece by piece
  }
  EXPECT_FALSE(fs::exists(PathOf("d")));
  EXPECT_FALSE(told([&](DigestWriter& writer) { begin(writer); }));
  EXPECT_FALSE(told([&](DigestWriter& writer) {
    begin(writer);
    begin(writer);
    writer.EndFile();
  }));
  EXPECT_FALSE(told([&](DigestWriter& writer) { writer.EndFile(); }));
  EXPECT_FALSE(told([&](DigestWriter& writer) { writer.AddData(0, "x", 1); }));
  EXPECT_FALSE(told([&](DigestWriter& writer) {
    writer.BeginFile("f", 1);
    writer.AddData(0, "xy", 2);
    writer.EndFile();
  }));
  EXPECT_FALSE(told([&](DigestWriter& writer) {
    writer.BeginFile("f", 9);
    writer.AddData(4, "xy", 2);
    writer.AddData(5, "y", 1);
    writer.EndFile();
  }));
  EXPECT_FALSE(told([&](DigestWriter& writer) {
    begin(writer);
    writer.AddData(0, much.data(), much.size());
    writer.EndFile();
    EXPECT_TRUE(writer.GiveUp());
    EXPECT_FALSE(writer.GiveUp());
    writer.BeginFile("g", 0);
    writer.EndFile();
  }));
  EXPECT_FALSE(fs::exists(PathOf("d")));
}

TEST_F(DigestTest, WhatCannotBeWrittenIsNotThereAndWhatWasThereGivesWay) {
  fs::create_directory(PathOf("d"));
  WriteFile(PathOf("d/inside"), "old");
  ASSERT_TRUE(Write("d", {{"f", "x"}}));
  EXPECT_EQ(TryOpen("d"), 0);
  EXPECT_FALSE(Write(std::string(300, 'n'), {{"f", "x"}}));
  EXPECT_FALSE(Write("no folder/d", {{"f", "x"}}));
}

TEST_F(DigestTest, TwoSnapshotsAreTheSameWhenAllTheirFilesAre) {
  const Files files = {{"a", "1"}, {"b", Pattern(kChunk * 3, 'b')}, {"c", ""}};
  const auto compare = [&](const Files& other, std::uint32_t chunk = kChunk) {
    EXPECT_TRUE(Write("one", files));
    EXPECT_TRUE(Write("other", other, chunk));
    std::optional<DigestDifference> found;
    const int error = CompareDigests(Open("one"), Open("other"), found);
    if (error != 0) return std::string("errno ") + std::to_string(error);
    return found ? found->path + " at " + std::to_string(found->offset) : std::string("same");
  };
  EXPECT_EQ(compare(files), "same");
  Files changed = files;
  changed["b"][kChunk * 2 + 1] = '!';
  EXPECT_EQ(compare(changed), "b at " + std::to_string(kChunk * 2));
  changed = files;
  changed["a"] += "1";
  EXPECT_EQ(compare(changed), "a at 0");
  changed = files;
  changed["b"] += "1";
  EXPECT_EQ(compare(changed), "b at " + std::to_string(kChunk * 3));
  changed = files;
  changed.erase("c");
  EXPECT_EQ(compare(changed), "c at 0");
  changed = files;
  changed["d"] = "";
  EXPECT_EQ(compare(changed), "d at 0");
  EXPECT_EQ(compare(files, kChunk * 2), "errno " + std::to_string(EBADMSG));
}

TEST_F(DigestTest, ChangesAreKnownOfFilesThatBothHaveWithTheSizesTheyHad) {
  const std::string before = Pattern(kChunk * 2, 'x');
  std::string now = before + "more";
  now[0] = '!';
  ASSERT_TRUE(Write("base", {{"f", before}, {"old", ""}}));
  ASSERT_TRUE(Write("snapshot", {{"f", now}, {"new", ""}}));
  ASSERT_TRUE(Write("in other chunks", {{"f", now}}, kChunk * 2));
  WriteFile(PathOf("before"), before);
  WriteFile(PathOf("now"), now);
  const Fd beforeFd(open(PathOf("before").c_str(), O_RDONLY));
  const Fd nowFd(open(PathOf("now").c_str(), O_RDONLY));
  const DigestFile base = Open("base");
  const DigestFile snapshot = Open("snapshot");
  DigestChanges changes(base, snapshot);
  bool isKnown = false;
  std::vector<Part> runs;
  EXPECT_EQ(changes.Find("f", beforeFd.Get(), nowFd.Get(), isKnown, runs), 0);
  EXPECT_TRUE(isKnown);
  EXPECT_THAT(runs, ElementsAre(Part{0, kChunk}));
  for (const char* path : {"old", "new", "neither"}) {
    EXPECT_EQ(changes.Find(path, beforeFd.Get(), nowFd.Get(), isKnown, runs), 0);
    EXPECT_FALSE(isKnown) << path;
  }
  // Somebody has made them longer or shorter since.
  EXPECT_EQ(changes.Find("f", nowFd.Get(), nowFd.Get(), isKnown, runs), 0);
  EXPECT_FALSE(isKnown);
  EXPECT_EQ(changes.Find("f", beforeFd.Get(), beforeFd.Get(), isKnown, runs), 0);
  EXPECT_FALSE(isKnown);
  const DigestFile inOther = Open("in other chunks");
  DigestChanges none(base, inOther);
  EXPECT_EQ(none.Find("f", beforeFd.Get(), nowFd.Get(), isKnown, runs), 0);
  EXPECT_FALSE(isKnown);
}

}  // namespace
}  // namespace host_test
