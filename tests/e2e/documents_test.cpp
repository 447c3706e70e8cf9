#include <filesystem>
#include <sstream>

#include "tool_fixture.h"
#include "tree.h"

// Help, manual page and completion tell of the same verbs.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

class DocumentsTest : public ToolTest {
 protected:
  // The verbs that "drgroupctl help" lists.
  static std::vector<std::string> VerbsOfHelp() {
    std::vector<std::string> verbs;
    std::istringstream help(RunWell({"help"}).out);
    std::string line;
    while (std::getline(help, line) && line != "Verbs:") {
    }
    while (std::getline(help, line) && !line.empty()) {
      verbs.push_back(line.substr(2, line.find("  ", 2) - 2));
    }
    return verbs;
  }

  // The words that "drgroupctl help VERB" lists behind "Arguments:" and "Options:".
  static std::vector<std::string> ParametersOfHelp(const std::string& verb) {
    std::vector<std::string> names;
    const std::string help = RunWell(HelpWords(verb)).out;
    std::istringstream lines(help.substr(help.find("\nOptions:\n")));
    std::string line;
    while (std::getline(lines, line)) {
      if (line.rfind("  --", 0) == 0) names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
  }

  static std::vector<std::string> Words(const std::string& verb) {
    const std::size_t space = verb.find(' ');
    if (space == std::string::npos) return {verb};
    return {verb.substr(0, space), verb.substr(space + 1)};
  }
  static std::vector<std::string> HelpWords(const std::string& verb) {
    std::vector<std::string> words = Words(verb);
    words.insert(words.begin(), "help");
    return words;
  }

  // What bash offers for the last of `words`.
  static std::vector<std::string> Complete(const std::vector<std::string>& words) {
    std::vector<std::string> argv{
        "bash",
        "-c",
        "PATH=$2:$PATH; . \"$1\"; shift 2; COMP_WORDS=(drgroupctl \"$@\"); COMP_CWORD=$#; "
        "_drgroupctl; printf '%s\\n' \"${COMPREPLY[@]}\"",
        "bash",
        DRGROUPCTL_COMPLETION,
        fs::path(DRGROUPCTL).parent_path()};
    argv.insert(argv.end(), words.begin(), words.end());
    const Result result = Process(argv).Wait();
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.err, "");
    std::vector<std::string> offers;
    std::istringstream lines(result.out);
    std::string line;
    while (std::getline(lines, line)) {
      if (!line.empty()) offers.push_back(line);
    }
    return offers;
  }
};

TEST_F(DocumentsTest, HelpListsEveryVerb) {
  EXPECT_THAT(
      VerbsOfHelp(),
      ElementsAre("host init", "volume init", "volume list", "target create", "target import",
                  "target list", "target remove", "target prune", "target snap-list",
                  "target snap-remove", "group create", "group list", "group show", "group add",
                  "group remove", "group quiesce", "group retention", "group hook", "group rename",
                  "group relink", "group upgrade", "group delete", "snapshot create",
                  "snapshot list", "snapshot show", "snapshot edit", "snapshot restore",
                  "snapshot diff", "snapshot get", "snapshot clone", "snapshot delete",
                  "snapshot repair", "snapshot ship", "snapshot sync", "snapshot prune",
                  "schedule set", "schedule show", "schedule remove", "schedule run", "protect",
                  "sync", "stop", "status", "metrics", "history", "switchover", "failover",
                  "reprotect", "edit", "unprotect", "plan list", "plan show", "plan delete",
                  "plan promote", "plan drop-arrived", "plan drop-shipment", "action run"));
}

TEST_F(DocumentsTest, HelpIsTheSameHoweverItIsAskedFor) {
  const std::string text = RunWell({"help", "snapshot", "create"}).out;
  EXPECT_THAT(text, AllOf(HasSubstr("usage: drgroupctl snapshot create GROUP"),
                          HasSubstr("--require"), HasSubstr("Changes: ")));
  EXPECT_EQ(RunWell({"snapshot", "create", "--help"}).out, text);
  EXPECT_EQ(RunWell({"--help", "snapshot", "create"}).out, text);
  EXPECT_EQ(RunWell({"--help"}).out, RunWell({"help"}).out);
  EXPECT_EQ(RunWell({"snapshot", "--help"}).out, RunWell({"help", "snapshot"}).out);
  for (const std::string& verb : VerbsOfHelp()) {
    EXPECT_THAT(RunWell(HelpWords(verb)).out, HasSubstr("usage: drgroupctl " + verb));
  }
}

TEST_F(DocumentsTest, WithJsonHelpIsADocumentHoweverItIsAskedFor) {
  const Json::Value overview = RunWell({"help", "--json"}).Json();
  EXPECT_THAT(overview.getMemberNames(), ElementsAre("exit_codes", "options", "verbs"));
  std::vector<std::string> verbs;
  for (const Json::Value& each : overview["verbs"]) {
    EXPECT_THAT(each.getMemberNames(), ElementsAre("name", "summary", "usage"));
    verbs.push_back(each["name"].asString());
  }
  EXPECT_EQ(verbs, VerbsOfHelp());
  EXPECT_EQ(overview["exit_codes"][3]["kind"], "not_found");
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"--json", "help"}, {"--help", "--json"}, {"--json", "--help"}}) {
    EXPECT_EQ(RunWell(words).Json(), overview);
  }
  for (const std::string& verb : VerbsOfHelp()) {
    auto words = HelpWords(verb);
    words.push_back("--json");
    const Json::Value told = RunWell(words).Json();
    EXPECT_THAT(told.getMemberNames(), ElementsAre("arguments", "changes", "description", "name",
                                                   "options", "summary", "usage"));
    EXPECT_EQ(told["name"], verb);
    std::vector<std::string> options;
    for (const Json::Value& each : told["options"]) options.push_back(each["name"].asString());
    EXPECT_EQ(options, ParametersOfHelp(verb));
  }
  const Json::Value verb = RunWell({"help", "snapshot", "create", "--json"}).Json();
  EXPECT_EQ(verb["arguments"][0]["name"], "GROUP");
  EXPECT_TRUE(verb["arguments"][0]["is_required"].asBool());
  EXPECT_EQ(verb["options"][2]["choices"].size(), 2U);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"snapshot", "create", "--help", "--json"},
        {"snapshot", "create", "--json", "--help"},
        {"--json", "help", "snapshot", "create"},
        {"--help", "--json", "snapshot", "create"}}) {
    EXPECT_EQ(RunWell(words).Json(), verb);
  }
  const Json::Value noun = RunWell({"help", "plan", "--json"}).Json();
  EXPECT_THAT(noun.getMemberNames(), ElementsAre("verbs"));
  EXPECT_EQ(noun["verbs"][0]["name"], "plan list");
  EXPECT_EQ(RunWell({"plan", "--json", "--help"}).Json(), noun);
  EXPECT_THAT(RunWell({"--json", "--version"}).Json().getMemberNames(), ElementsAre("version"));
}

TEST_F(DocumentsTest, TheVersionIsPrinted) {
  EXPECT_THAT(RunWell({"--version"}).out, testing::MatchesRegex("drgroupctl [0-9.]+\n"));
}

TEST_F(DocumentsTest, TheManualPageHasEveryVerbOptionAndExitCode) {
  const std::string page = host_test::ReadFile(DRGROUPCTL_MANUAL_PAGE);
  const auto escape = [](const std::string& text) {
    std::string escaped;
    for (const char c : text) escaped += c == '-' ? "\\-" : std::string(1, c);
    return escaped;
  };
  for (const std::string& verb : VerbsOfHelp()) {
    const std::size_t at = page.find("\n.SS \"" + escape(verb));
    ASSERT_NE(at, std::string::npos) << verb;
    const std::string section = page.substr(at, page.find("\n.S", at + 1) - at);
    for (const std::string& option : ParametersOfHelp(verb)) {
      if (option == "--json" || option == "--help") continue;
      EXPECT_THAT(section, HasSubstr("\n.B \"" + escape(option))) << verb;
    }
  }
  for (const char* code : {"0 done", "1 failed", "2 usage", "3 not_found", "4 refused",
                           "5 catalogue", "6 busy", "7 configuration", "8 storage", "9 stopped"}) {
    EXPECT_THAT(page, HasSubstr(".B \"" + std::string(code) + "\""));
  }
}

TEST_F(DocumentsTest, TheManualPageFormatsWithoutAWarning) {
  if (!fs::exists("/usr/bin/man")) GTEST_SKIP() << "the program man is not installed";
  // Out of the way of the private /var, in which man has no cache.
  Process process({"/usr/bin/man", "--warnings", "-E", "UTF-8", "-l", DRGROUPCTL_MANUAL_PAGE},
                  "/dev/null");
  const Result result = process.Wait();
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.err, "");
}

TEST_F(DocumentsTest, CompletionOffersEveryVerbAndOption) {
  EXPECT_THAT(Complete({""}),
              ElementsAre("host", "volume", "target", "group", "snapshot", "schedule", "protect",
                          "sync", "stop", "status", "metrics", "history", "switchover", "failover",
                          "reprotect", "edit", "unprotect", "plan", "action", "help"));
  EXPECT_THAT(Complete({"sn"}), ElementsAre("snapshot"));
  for (const std::string& verb : VerbsOfHelp()) {
    std::vector<std::string> words = Words(verb);
    if (words.size() > 1) {
      EXPECT_THAT(Complete({words[0], ""}), Contains(words[1]));
      EXPECT_THAT(Complete({"help", words[0], ""}), Contains(words[1]));
    }
    words.push_back("--");
    EXPECT_THAT(Complete(words), IsSupersetOf(ParametersOfHelp(verb)));
  }
}

TEST_F(DocumentsTest, CompletionOffersWhatThereIs) {
  MakeGroup();
  RunWell({"target", "create", "with space", "--volume", "v1", "--type", "share"});
  const std::string id = TakeSnapshot();
  EXPECT_THAT(Complete({"group", "show", ""}), ElementsAre("g"));
  EXPECT_THAT(Complete({"snapshot", "create", "x"}), IsEmpty());
  EXPECT_THAT(Complete({"sync", ""}), ElementsAre("g"));
  EXPECT_THAT(Complete({"help", "sync", ""}), IsEmpty());
  EXPECT_THAT(Complete({"protect", "g", "--volume", "v"}), ElementsAre("v1", "v2"));
  EXPECT_THAT(Complete({"failover", "g", "--snapshot", ""}), ElementsAre(id));
  RunWell({"protect", "g", "--volume", "v2"});
  EXPECT_EQ(Complete({"plan", "show", ""}).size(), 3U);
  EXPECT_THAT(Complete({"action", "run", "can_s"}), ElementsAre("can_sync", "can_switchover"));
  EXPECT_THAT(Complete({"action", "run", "sync", ""}), ElementsAre("g"));
  RunWell({"unprotect", "g", "--delete-data", "--yes"});
  EXPECT_THAT(Complete({"snapshot", "delete", "g"}), ElementsAre(id));
  EXPECT_THAT(Complete({"target", "remove", ""}),
              ElementsAre("guest", "lun", "share", "with\\ space"));
  EXPECT_THAT(Complete({"target", "create", "new", "--volume", ""}), ElementsAre("v1", "v2"));
  EXPECT_THAT(Complete({"target", "create", "new", "--type", "s"}), ElementsAre("share"));
  EXPECT_THAT(Complete({"snapshot", "create", "g", "--require", ""}), ElementsAre("crash", "app"));
  EXPECT_THAT(Complete({"group", "create", "h", "--target", "lun", "s"}), ElementsAre("share"));
  EXPECT_THAT(Complete({"target", "import", "new", Root() + "/conf"}),
              ElementsAre(Root() + "/config.json"));
  EXPECT_THAT(Complete({"group", "create", "h", "--dir", Root() + "/v"}),
              UnorderedElementsAre(Root() + "/v1", Root() + "/v2"));
}

}  // namespace
}  // namespace e2e
