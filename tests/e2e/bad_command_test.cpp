#include "tool_fixture.h"

// Command lines that are wrong: one line, exit code 2, nothing done.

namespace e2e {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

class BadCommandTest : public ToolTest {
 protected:
  // Identifiers that no group, target or volume may have.
  static Words BadIdentifiers() {
    return {"",
            "a/b",
            "/",
            "it's",
            "a\"b",
            "a\\b",
            ".",
            "..",
            ".a",
            "a\nb",
            "a\tb",
            "a\x7f",
            "\xff",
            "a\xc3",
            "\xc0\xaf",
            " a",
            "a ",
            "a\xe2\x80\xae"
            "b",
            std::string(201, 'x'),
            "a\x1b[31m"};
  }
};

TEST_F(BadCommandTest, UnknownVerbsAreNamed) {
  RunBadly(kUsage, {}, {"a verb is missing", "drgroupctl help"});
  RunBadly(kUsage, {"frobnicate"}, {"\"frobnicate\"", "drgroupctl help"});
  RunBadly(kUsage, {"group"},
           {"\"group\"",
            "create, list, show, add, remove, quiesce, retention, hook, rename, relink, upgrade, "
            "delete"});
  RunBadly(kUsage, {"group", "frobnicate"},
           {"\"group frobnicate\"",
            "create, list, show, add, remove, quiesce, retention, hook, rename, relink, upgrade, "
            "delete"});
  RunBadly(kUsage, {"help", "frobnicate"}, {"\"frobnicate\""});
  RunBadly(kUsage, {""}, {"\"\""});
}

TEST_F(BadCommandTest, UnknownOptionsAndSurplusArgumentsAreNamed) {
  RunBadly(kUsage, {"volume", "list", "--frob"}, {"\"--frob\"", "drgroupctl help volume list"});
  RunBadly(kUsage, {"volume", "list", "-x"}, {"\"-x\""});
  RunBadly(kUsage, {"--frob", "volume", "list"}, {"\"--frob\""});
  RunBadly(kUsage, {"volume", "list", "more"}, {"\"more\""});
  RunBadly(kUsage, {"group", "show", "g", "[more]"}, {"\"[more]\""});
  RunBadly(kUsage, {"snapshot", "list", "g", "--latest=maybe"}, {"--latest"});
}

TEST_F(BadCommandTest, AFlagThatIsGivenAValueIsNotTakenForOneThatIsSet) {
  MakeGroup();
  RunBadly(kUsage, {"target", "remove", "lun", "--yes=no"}, {"--yes takes no value"});
  RunBadly(kUsage, {"target", "remove", "lun", "--yes", "--with-snapshots=false"},
           {"--with-snapshots takes no value"});
  EXPECT_EQ(RunWell({"target", "list", "--json"}).Json()["targets"].size(), 3U);
}

TEST_F(BadCommandTest, MissingArgumentsAndValuesAreNamed) {
  RunBadly(kUsage, {"group", "show"}, {"GROUP is missing"});
  RunBadly(kUsage, {"target", "create", "a", "--type", "lun"}, {"--volume is missing"});
  RunBadly(kUsage, {"target", "create", "a", "--volume"}, {"--volume"});
  RunBadly(kUsage, {"target", "import", "a", "--volume", "v1", "--type", "lun"},
           {"PATH is missing"});
  RunBadly(kUsage, {"target", "create", "a", "--volume", "v1", "--volume", "v2", "--type", "share"},
           {"--volume", "once"});
}

TEST_F(BadCommandTest, BadIdentifiersNeverReachTheHost) {
  MakeGroup();
  const auto before = Tree(Root());
  for (const std::string& id : BadIdentifiers()) {
    for (const Words& words :
         {Words{"target", "create", id, "--volume", "v1", "--type", "share"},
          Words{"target", "create", "ok", "--volume", id, "--type", "share"},
          Words{"target", "remove", id, "--yes"}, Words{"group", "create", id, "--target", "lun"},
          Words{"group", "create", "ok", "--target", id}, Words{"group", "show", id},
          Words{"group", "delete", id, "--yes"}, Words{"snapshot", "create", id},
          Words{"snapshot", "list", id}, Words{"snapshot", "show", id + "-gsnap-1700000000"},
          Words{"snapshot", "delete", id + "-gsnap-1700000000", "--yes"}}) {
      // A name that ends in a space may stand before the rest of a group snapshot's identifier, but
      // then the group is what is wrong.
      RunBadly(kUsage, words, {"drgroupctl: "});
    }
  }
  EXPECT_EQ(Tree(Root()), before);
}

TEST_F(BadCommandTest, AnIdentifierThatBeginsWithAHyphenIsNoOption) {
  RunBadly(kUsage, {"group", "show", "--", "-g"}, {"\"-g\"", "begins with"});
  RunBadly(kUsage, {"target", "create", "a", "--volume=-v", "--type", "share"}, {"\"-v\""});
}

TEST_F(BadCommandTest, IdentifiersMayHaveSpacesAndLetters) {
  RunWell({"target", "create", "Büro 1", "--volume", "v1", "--type", "share"});
  RunWell({"target", "create", "[a,b]", "--volume", "v1", "--type", "share"});
  RunWell({"group", "create", "Gruppe ä-gsnap-1", "--target", "Büro 1", "[a,b]"});
  const Json::Value made = RunWell({"snapshot", "create", "Gruppe ä-gsnap-1", "--json"}).Json();
  RunWell({"snapshot", "show", made["gsnap_id"].asString()});
  RunWell({"snapshot", "delete", made["gsnap_id"].asString(), "--yes"});
  RunWell({"group", "delete", "Gruppe ä-gsnap-1", "--yes"});
}

TEST_F(BadCommandTest, WhatDoesNotLookLikeAGroupSnapshotIsRefused) {
  for (const char* id : {"", "g", "g-gsnap-", "g-gsnap-x", "g-gsnap-1x", "-gsnap-1", "g-gsnap--1",
                         "g-gsnap-123456789012345678901"}) {
    RunBadly(kUsage, {"snapshot", "show", "--", id}, {"drgroupctl: "});
  }
}

TEST_F(BadCommandTest, UnknownThingsAreNotFound) {
  MakeGroup();
  RunBadly(kNotFound, {"group", "show", "nog"}, {"group \"nog\"", "group list"});
  RunBadly(kNotFound, {"group", "delete", "nog", "--yes"}, {"group \"nog\""});
  RunBadly(kNotFound, {"snapshot", "create", "nog"}, {"group \"nog\""});
  RunBadly(kNotFound, {"snapshot", "list", "nog"}, {"group \"nog\""});
  RunBadly(kNotFound, {"snapshot", "show", "nog-gsnap-5"}, {"group \"nog\""});
  RunBadly(kNotFound, {"snapshot", "show", "g-gsnap-5"}, {"\"g-gsnap-5\"", "snapshot list g"});
  RunBadly(kNotFound, {"snapshot", "delete", "g-gsnap-5", "--yes"}, {"\"g-gsnap-5\""});
}

TEST_F(BadCommandTest, AConsistencyOfAnotherNameIsRefused) {
  MakeGroup();
  RunBadly(kUsage, {"snapshot", "create", "g", "--require", "perfect"},
           {"\"perfect\"", "crash, app"});
  RunBadly(kUsage, {"snapshot", "create", "g", "--description", "\xff\xfe"},
           {"--description", "UTF-8"});
  EXPECT_TRUE(ListSnapshots().empty());
}

TEST_F(BadCommandTest, WithJsonAFailureIsADocumentToo) {
  const Result result = Run({"group", "show", "nog", "--json"});
  EXPECT_EQ(result.code, kNotFound);
  EXPECT_EQ(result.err.rfind("drgroupctl: ", 0), 0U);
  const Json::Value error = result.Json()["error"];
  EXPECT_EQ(error["exit_code"], kNotFound);
  EXPECT_EQ(error["kind"], "not_found");
  EXPECT_THAT(error["message"].asString(), HasSubstr("nog"));
  EXPECT_EQ(Run({"--json", "frobnicate"}).Json()["error"]["kind"], "usage");
}

}  // namespace
}  // namespace e2e
