#include <unistd.h>

#include <algorithm>

#include "tool_fixture.h"

// What stands on standard output, and what happens when it cannot stand there.

namespace e2e {
namespace {

using testing::HasSubstr;
using testing::Not;

using OutputTest = ToolTest;

TEST_F(OutputTest, AFullDiskBehindStandardOutputIsAFailure) {
  for (const std::vector<std::string>& words : {std::vector<std::string>{"volume", "list"},
                                                {"volume", "list", "--json"},
                                                {"help"},
                                                {"--version"},
                                                {"target", "list"}}) {
    const Result result = Run(words, "/dev/full");
    EXPECT_EQ(result.code, kFailed);
    EXPECT_THAT(result.err,
                HasSubstr("drgroupctl: cannot write to standard output: No space left"));
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
  }
}

TEST_F(OutputTest, AReaderThatWentAwayIsAFailure) {
  MakeGroup();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  Process process({"/bin/sh", "-c",
                   std::string(DRGROUPCTL) + " snapshot create g >&" + std::to_string(ends[1])});
  close(ends[1]);
  const Result result = process.Wait();
  EXPECT_EQ(result.code, kFailed);
  EXPECT_THAT(result.err, HasSubstr("cannot write to standard output: Broken pipe"));
  EXPECT_EQ(ListSnapshots().size(), 1U) << "what was done stays done";
}

TEST_F(OutputTest, AClosedStandardOutputIsAFailureAndSpoilsNoFile) {
  MakeGroup();
  for (const char* closed : {">&-", "<&- >&-", "<&- >&- 2>&-"}) {
    Process process({"/bin/sh", "-c", std::string(DRGROUPCTL) + " snapshot create g " + closed});
    EXPECT_EQ(process.Wait().code, kFailed);
  }
  EXPECT_EQ(ListSnapshots().size(), 3U);
}

TEST_F(OutputTest, TablesKeepTheirLinesWhateverADescriptionHolds) {
  MakeGroup();
  const std::string text =
      "one\ntwo\r\t\x1b[31mred\x7f \xe2\x80\xae\xc2\x9b" + std::string("\"'`$(id)");
  const std::string id = TakeSnapshot({"--description", text});
  const std::string table = RunWell({"snapshot", "list", "g"}).out;
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 2);
  EXPECT_THAT(table, HasSubstr("one\\ntwo\\r\\t\\x1b[31mred\\x7f \\u202e\\x9b\"'`$(id)"));
  EXPECT_EQ(table.find('\x1b'), std::string::npos);
  EXPECT_EQ(RunWell({"snapshot", "show", id, "--json"}).Json()["description"], text);
}

TEST_F(OutputTest, ColumnsAreAlignedForWideAndCombiningCharacters) {
  MakeGroup();
  RunWell({"group", "create", "漢字", "--target", "lun"});
  RunWell({"group", "create", "e\xcc\x81", "--target", "lun"});
  const std::string table = RunWell({"group", "list"}).out;
  EXPECT_THAT(table, HasSubstr("\n漢字   1 "));
  EXPECT_THAT(table, HasSubstr("\ne\xcc\x81      1 "));
  EXPECT_THAT(table, HasSubstr("\ng      3 "));
}

TEST_F(OutputTest, LongTextIsKeptWhole) {
  MakeGroup();
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "漢";
  const std::string id = TakeSnapshot({"--description", text});
  EXPECT_EQ(RunWell({"snapshot", "show", id, "--json"}).Json()["description"], text);
  EXPECT_THAT(RunWell({"snapshot", "list", "g"}).out, HasSubstr(text));
}

TEST_F(OutputTest, BytesThatAreNoTextDoNotSpoilTheDocument) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  RunSql(DatabaseOf("g"), "UPDATE gsnap_meta SET \"desc\" = CAST(x'41ff00c342' AS TEXT)");
  const std::string out = RunWell({"snapshot", "show", id, "--json"}).out;
  EXPECT_THAT(out, HasSubstr("\"A\xEF\xBF\xBD\\u0000\xEF\xBF\xBD"
                             "B\""));
  EXPECT_THAT(RunWell({"snapshot", "show", id}).out, HasSubstr("A\\xff\\x00\\xc3"
                                                               "B"));
}

TEST_F(OutputTest, WarningsStandInTheDocumentToo) {
  MakeGroup();
  const Result done = RunWell({"target", "remove", "lun", "--yes", "--json"});
  // Programs that came and went meanwhile may be warned of, too.
  const auto find = [](const Result& result) {
    std::vector<std::string> found;
    const Json::Value document = result.Json();
    for (const Json::Value& each : document["warnings"]) {
      const std::string text = each.asString();
      if (text.find("belongs to group \"g\"") != std::string::npos) found.push_back(text);
    }
    return found;
  };
  const std::vector<std::string> warnings = find(done);
  ASSERT_THAT(warnings, testing::SizeIs(1));
  EXPECT_THAT(done.err, HasSubstr("drgroupctl: warning: " + warnings[0] + "\n"));

  const Result failed = Run({"target", "remove", "share", "--json"});
  EXPECT_EQ(failed.code, kRefused);
  EXPECT_THAT(failed.Json().getMemberNames(), testing::ElementsAre("error", "warnings"));
  EXPECT_THAT(find(failed), testing::SizeIs(1));
  EXPECT_FALSE(RunWell({"target", "list", "--json"}).Json().isMember("warnings"))
      << "there are none";
}

TEST_F(OutputTest, JsonMayBeAskedForBeforeTheVerb) {
  EXPECT_TRUE(RunWell({"--json", "target", "list"}).Json()["targets"].isArray());
}

}  // namespace
}  // namespace e2e
