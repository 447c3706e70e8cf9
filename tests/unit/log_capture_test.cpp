#include "log_capture.h"

#include <gmock/gmock.h>
#include <syslog.h>
#include <unistd.h>

namespace unit {
namespace {

using test_support::Err;
using test_support::LogCapture;
using test_support::LogEntry;
using test_support::LogLine;
using test_support::Notice;
using test_support::ParseLongLine;
using test_support::ParseShortLine;
using test_support::ShortErr;
using test_support::Warn;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Matches;

std::string Long(const std::string& head, const std::string& level, const std::string& message) {
  return head + "[" + level + "][" + std::to_string(getpid()) + "]: " + message;
}

TEST(LogCapture, CollectsWhatIsLoggedWhileItLives) {
  syslog(LOG_ERR, "before");
  LogCapture log;
  EXPECT_THAT(log.Entries(), IsEmpty());
  syslog(LOG_WARNING, "%s and %d", "%s%n", 7);
  ASSERT_EQ(log.Entries().size(), 1U);
  EXPECT_EQ(log.Entries()[0].priority, LOG_WARNING);
  EXPECT_EQ(log.Entries()[0].text, "%s%n and 7");
  log.Clear();
  EXPECT_THAT(log.Entries(), IsEmpty());
}

TEST(LogCapture, KeepsLongLinesWhole) {
  LogCapture log;
  const std::string longText(100000, 'x');
  syslog(LOG_ERR, "%s", longText.c_str());
  ASSERT_EQ(log.Entries().size(), 1U);
  EXPECT_EQ(log.Entries()[0].text, longText);
}

TEST(LogCapture, MatchesALongLineInAllItsParts) {
  const std::string text = Long("a/b:12(Run)", "ERR", "m [x]: (y)");
  const auto matcher = Err("a/b", "Run", "m [x]: (y)");
  EXPECT_TRUE(Matches(matcher)(LogEntry{LOG_ERR, text}));
  EXPECT_FALSE(Matches(matcher)(LogEntry{LOG_WARNING, text}));
  EXPECT_FALSE(Matches(matcher)(LogEntry{LOG_ERR | LOG_USER, text}));
  EXPECT_FALSE(Matches(Warn("a/b", "Run", "m [x]: (y)"))(LogEntry{LOG_WARNING, text}));
  EXPECT_FALSE(Matches(Err("a", "Run", "m [x]: (y)"))(LogEntry{LOG_ERR, text}));
  EXPECT_FALSE(Matches(Err("a/b", "Ru", "m [x]: (y)"))(LogEntry{LOG_ERR, text}));
  EXPECT_FALSE(Matches(Err("a/b", "Run", "m [x]: (y) "))(LogEntry{LOG_ERR, text}));
}

TEST(LogCapture, MatchesTheLevelWordsOfAllPriorities) {
  EXPECT_TRUE(Matches(Warn("a", "F", "m"))(LogEntry{LOG_WARNING, Long("a:1(F)", "WARN", "m")}));
  EXPECT_TRUE(Matches(Notice("a", "F", "m"))(LogEntry{LOG_NOTICE, Long("a:1(F)", "NOTICE", "m")}));
  EXPECT_FALSE(Matches(Notice("a", "F", "m"))(LogEntry{LOG_INFO, Long("a:1(F)", "NOTICE", "m")}));
}

TEST(LogCapture, MatchesOnlyThisProcessAndARealLine) {
  EXPECT_FALSE(Matches(Err("a", "F", "m"))(LogEntry{LOG_ERR, Long("a:0(F)", "ERR", "m")}));
  EXPECT_FALSE(Matches(Err("a", "F", "m"))(LogEntry{LOG_ERR, "a:1(F)[ERR][0]: m"}));
}

TEST(LogCapture, MatchesAShortLineInAllItsParts) {
  EXPECT_TRUE(Matches(ShortErr("a/b", "m: 1"))(LogEntry{LOG_ERR, "a/b:3 m: 1"}));
  EXPECT_FALSE(Matches(ShortErr("a/b", "m: 1"))(LogEntry{LOG_NOTICE, "a/b:3 m: 1"}));
  EXPECT_FALSE(Matches(ShortErr("a/b", "m: 1"))(LogEntry{LOG_ERR, "a/b:0 m: 1"}));
  EXPECT_FALSE(Matches(ShortErr("a", "m: 1"))(LogEntry{LOG_ERR, "a/b:3 m: 1"}));
  EXPECT_FALSE(Matches(ShortErr("a/b", "m"))(LogEntry{LOG_ERR, "a/b:3 m: 1"}));
}

TEST(LogCapture, TakesALineOfAnotherFormForNone) {
  LogLine line;
  for (const char* text : {"", "message", "a:x(F)[ERR][1]: m", "a:1(F)[ERR][1] m", "a:1 m",
                           "a:1(F)[ERR][]: m", "a:-1(F)[ERR][1]: m"}) {
    EXPECT_FALSE(ParseLongLine(text, line)) << text;
  }
  for (const char* text : {"", "message", "a:x m", "a:1m", "a: m"}) {
    EXPECT_FALSE(ParseShortLine(text, line)) << text;
  }
}

}  // namespace
}  // namespace unit
