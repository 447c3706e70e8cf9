#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>
#include <sstream>

#include "vreldr/quiesce.h"
#include "vreldrcore/json.h"

namespace host_test {
namespace {

using testing::HasSubstr;
using VrelDR::QuiesceMeans;

Json::Value Parse(const std::string& text) {
  Json::Value value;
  std::istringstream in(text);
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, nullptr)) << text;
  return value;
}

TEST(QuiesceMeansValue, GoesThroughJson) {
  QuiesceMeans means;
  EXPECT_TRUE(means.IsEmpty());
  means.control_groups = {"/sys/fs/cgroup/db"};
  means.units = {"db.service"};
  means.domains = {"vm1"};
  means.commands = {{{"/bin/flush", "a \"b\""}, {"go-on"}, true}};
  means.deadline_ms = 250;
  EXPECT_FALSE(means.IsEmpty());
  QuiesceMeans read;
  std::string problem;
  ASSERT_TRUE(read.FromJson(means.ToJson(), problem)) << problem;
  EXPECT_EQ(read.ToJson(), means.ToJson());
  EXPECT_EQ(VrelDRCore::JsonUtil::ToString(read.ToJson()),
            R"({"commands":[{"freeze":["/bin/flush","a \"b\""],"is_app_consistent":true,)"
            R"("thaw":["go-on"]}],"control_groups":["/sys/fs/cgroup/db"],"deadline_ms":250,)"
            R"("domains":["vm1"],"units":["db.service"]})");
}

TEST(QuiesceMeansValue, LeavesOutWhatIsLeftOut) {
  QuiesceMeans means;
  means.units = {"before"};
  std::string problem;
  ASSERT_TRUE(means.FromJson(Parse(R"({"domains":["vm1"]})"), problem));
  EXPECT_TRUE(means.units.empty());
  EXPECT_EQ(means.domains, std::vector<std::string>{"vm1"});
  EXPECT_EQ(means.deadline_ms, 5000U);
  ASSERT_TRUE(means.FromJson(Parse("{}"), problem));
  EXPECT_TRUE(means.IsEmpty());
}

TEST(QuiesceMeansValue, IsOfTheApplicationWhenEveryCommandIs) {
  QuiesceMeans means;
  EXPECT_FALSE(means.IsAppConsistent());
  means.commands = {{{"a"}, {"b"}, true}};
  EXPECT_TRUE(means.IsAppConsistent());
  means.commands.push_back({{"a"}, {"b"}, false});
  EXPECT_FALSE(means.IsAppConsistent());
}

TEST(QuiesceMeansValue, RefusesWhatIsWrongAndStaysAsItWas) {
  QuiesceMeans means;
  means.units = {"before"};
  for (const auto& [text, said] : std::vector<std::pair<std::string, std::string>>{
           {"[]", "not an object"},
           {R"({"unit":["a"]})", "no member \"unit\""},
           {R"({"units":"a"})", "\"units\" is not a list"},
           {R"({"units":[1]})", "not a text"},
           {R"({"units":[""]})", "no name"},
           {R"({"units":["a","a"]})", "unit \"a\" is named twice"},
           {R"({"units":["a\u0000b"]})", "no name"},
           {R"({"control_groups":["a"]})", "not an absolute path"},
           {R"({"commands":{}})", "\"commands\" is not a list"},
           {R"({"commands":["a"]})", "not an object"},
           {R"({"commands":[{"freeze":["a"],"thaw":["b"],"shell":true}]})", "no member \"shell\""},
           {R"({"commands":[{"freeze":["a"]}]})", "a thaw command names no program"},
           {R"({"commands":[{"freeze":[],"thaw":["b"]}]})", "a freeze command names no program"},
           {R"({"commands":[{"freeze":["","a"],"thaw":["b"]}]})", "a freeze command names"},
           {R"({"commands":[{"freeze":["a\u0000b"],"thaw":["b"]}]})", "zero"},
           {R"({"commands":[{"freeze":["a"],"thaw":["b"],"is_app_consistent":1}]})",
            "true or false"},
           {R"({"deadline_ms":"5"})", "not a number"},
           {R"({"deadline_ms":-1})", "not a number"},
           {R"({"deadline_ms":99})", "from 100 to 60000 ms"},
           {R"({"deadline_ms":60001})", "from 100 to 60000 ms"}}) {
    std::string problem;
    EXPECT_FALSE(means.FromJson(Parse(text), problem)) << text;
    EXPECT_THAT(problem, HasSubstr(said)) << text;
    EXPECT_EQ(means.units, std::vector<std::string>{"before"});
  }
}

}  // namespace
}  // namespace host_test
