#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "hold_fixture.h"

// Virtual machines and units of a service manager, asked for by programs that stand in for theirs.

namespace host_test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::SizeIs;
using VrelDR::HoldEnd;
using VrelDR::QuiesceMeans;
using VrelDR::WriterHold;

// PATH begins with the directory of the stand-ins for as long as it lives.
class WithPath {
 public:
  explicit WithPath(const std::string& path) : before_(std::getenv("PATH")) {
    setenv("PATH", path.c_str(), 1);
  }
  ~WithPath() { setenv("PATH", before_.c_str(), 1); }
  WithPath(const WithPath&) = delete;
  WithPath& operator=(const WithPath&) = delete;

 private:
  std::string before_;
};

QuiesceMeans Domain(const std::string& name) {
  QuiesceMeans means;
  means.domains = {name};
  return means;
}

QuiesceMeans Unit(const std::string& name) {
  QuiesceMeans means;
  means.units = {name};
  return means;
}

class DomainHoldTest : public HoldTest {
 protected:
  // A virsh that knows the domain "vm" in this state, and notes what it is told to do.
  void StandIn(const std::string& state, bool hasAgent, const std::string& onFreeze = "") const {
    WriteScript("virsh", "cd '" + Root() + "' || exit 1\n" +
                             "[ \"$1 $3 $4\" = '-q --domain vm' ] || "
                             "{ echo \"error: failed to get domain '$4'\" >&2; exit 1; }\n"
                             "case $2 in\n"
                             "domstate) echo '" +
                             state +
                             "'; echo ;;\n"
                             "qemu-agent-command) " +
                             (hasAgent ? "echo '{}'" : "exit 1") +
                             " ;;\n"
                             "domfsfreeze|suspend) echo $2 >>frozen; " +
                             onFreeze +
                             " ;;\n"
                             "domfsthaw|resume) echo $2 >>thawed ;;\n"
                             "*) exit 1 ;;\nesac\n");
  }
  std::string Words(const std::string& name) const {
    std::string word;
    std::string words;
    std::ifstream in(FileOf(name));
    while (in >> word) words += word + " ";
    return words;
  }
};

TEST_F(DomainHoldTest, FileSystemsAreFrozenByTheAgentWhereOneAnswers) {
  StandIn("running", true);
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  WriterHold hold(Domain("vm"));
  ASSERT_EQ(hold.Hold().message, "");
  EXPECT_EQ(Words("frozen"), "domfsfreeze ");
  EXPECT_EQ(Words("thawed"), "");
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  EXPECT_EQ(Words("thawed"), "domfsthaw ");
}

TEST_F(DomainHoldTest, ADomainWithoutAnAgentIsSuspendedAndResumed) {
  StandIn("running", false);
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  WriterHold hold(Domain("vm"));
  ASSERT_EQ(hold.Hold().message, "");
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  EXPECT_EQ(Words("frozen"), "suspend ");
  EXPECT_EQ(Words("thawed"), "resume ");
}

TEST_F(DomainHoldTest, ADomainThatDoesNotRunIsRefusedAndLeftAlone) {
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  for (const std::string state : {"paused", "shut off"}) {
    StandIn(state, true);
    WriterHold hold(Domain("vm"));
    EXPECT_THAT(hold.Check().message,
                AllOf(HasSubstr("domain \"vm\""), HasSubstr("\"" + state + "\"")));
    EXPECT_FALSE(hold.Hold().IsOk());
  }
  EXPECT_EQ(Words("frozen") + Words("thawed"), "");
}

TEST_F(DomainHoldTest, ADomainThatNobodyKnowsIsToldAsVirshTellsIt) {
  StandIn("running", true);
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  WriterHold hold(Domain("other"));
  EXPECT_THAT(hold.Check().message,
              AllOf(HasSubstr("domain \"other\""), HasSubstr("failed to get domain 'other'")));
}

TEST_F(DomainHoldTest, ADomainIsFrozenAfterCommandsAndThawedBeforeThem) {
  StandIn("running", true, "wc -l <noted >>seen");
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  QuiesceMeans means = Domain("vm");
  means.commands = {{Shell("sleep 0.1; echo f >>noted"), Shell("cat thawed >>after"), false}};
  WriterHold hold(means);
  ASSERT_EQ(hold.Hold().message, "");
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  EXPECT_EQ(Words("seen"), "1 ");
  EXPECT_EQ(Words("after"), "domfsthaw ");
}

TEST_F(DomainHoldTest, AFreezeThatFailsIsToldAndThawed) {
  StandIn("running", false, "echo 'error: no' >&2; exit 1");
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  WriterHold hold(Domain("vm"));
  EXPECT_THAT(hold.Hold().message, AllOf(HasSubstr("domain \"vm\""), HasSubstr("error: no")));
  EXPECT_EQ(Words("thawed"), "resume ");
}

TEST_F(DomainHoldTest, WithoutVirshTheCheckSaysSo) {
  const bool isThere = fs::exists("/usr/bin/virsh");
  ASSERT_TRUE(!isThere || std::system("mount --bind /dev/null /usr/bin/virsh") == 0);
  WriterHold hold(Domain("vm"));
  EXPECT_THAT(hold.Check().message, AllOf(HasSubstr("domain \"vm\""), HasSubstr("\"virsh\"")));
  EXPECT_TRUE(!isThere || std::system("umount /usr/bin/virsh") == 0);
}

// The real program, whose test driver needs no daemon: each run of it has a domain "test" anew.
TEST_F(DomainHoldTest, TheRealProgramUnderstandsWhatItIsToldToDo) {
  if (!fs::exists("/usr/bin/virsh")) GTEST_SKIP() << "virsh is missing: install libvirt-clients";
  setenv("LIBVIRT_DEFAULT_URI", "test:///default", 1);
  WriterHold hold(Domain("test"));
  EXPECT_EQ(hold.Check().message, "");
  EXPECT_EQ(hold.Hold().message, "");
  HoldEnd end;
  EXPECT_EQ(hold.Release(end).message, "");
  // It is running again already, as nobody has suspended this one.
  ASSERT_THAT(end.troubles, SizeIs(1));
  EXPECT_THAT(end.troubles[0], AllOf(HasSubstr("domain \"test\""), HasSubstr("not paused")));
  WriterHold missing(Domain("--all"));
  EXPECT_THAT(missing.Check().message, HasSubstr("failed to get domain"));
  unsetenv("LIBVIRT_DEFAULT_URI");
}

class UnitHoldTest : public GroupHoldTest {
 protected:
  void StandIn(const std::string& answer) const {
    WriteScript("systemctl",
                "[ \"$1 $2 $3 $4 $5\" = 'show --property=LoadState --property=ControlGroup -- "
                "db.service' ] || exit 1\nprintf '%s\\n' " +
                    answer + "\n");
  }
};

INSTANTIATE_TEST_SUITE_P(Kinds, UnitHoldTest, testing::Values("v1", "v2"),
                         [](const auto& parameter) { return parameter.param; });

TEST_P(UnitHoldTest, AUnitIsHeldByItsControlGroup) {
  StandIn("LoadState=loaded ControlGroup=/" + fs::path(Group()).filename().string());
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  const CountingWriter writer({Group()});
  QuiesceMeans means = Unit("db.service");
  means.control_groups = {Group()};  // the same: it is held once
  WriterHold hold(means);
  ASSERT_EQ(hold.Hold().message, "");
  EXPECT_TRUE(StandsStill(writer));
  HoldEnd end;
  ASSERT_EQ(hold.Release(end).message, "");
  EXPECT_TRUE(writer.Moves());
}

TEST_P(UnitHoldTest, AUnitThatCannotBeHeldIsToldWithTheReason) {
  const WithPath path(Root() + ":" + std::getenv("PATH"));
  for (const auto& [answer, said] : std::vector<std::pair<std::string, std::string>>{
           {"LoadState=not-found ControlGroup=", "not known to the service manager"},
           {"LoadState=loaded ControlGroup=", "no control group of its own"},
           {"LoadState=loaded ControlGroup=/no/such/group", "in no hierarchy that can be frozen"},
           {"; echo 'Failed to connect to bus' >&2; exit 1", "Failed to connect to bus"}}) {
    StandIn(answer);
    WriterHold hold(Unit("db.service"));
    EXPECT_EQ(hold.Check().code, VrelDR::kErrNotHeld);
    EXPECT_THAT(hold.Check().message, AllOf(HasSubstr("unit \"db.service\""), HasSubstr(said)));
  }
}

}  // namespace
}  // namespace host_test
