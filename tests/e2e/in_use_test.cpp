#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <new>
#include <thread>

#include "../torture/loop_device.h"
#include "holder.h"
#include "paused_shipment.h"
#include "plan_fixture.h"

// Somebody has the targets open that a verb makes unwritable, replaces or removes.

namespace e2e {
namespace {

namespace fs = std::filesystem;
using host_test::Holder;
using testing::AllOf;
using testing::HasSubstr;

bool Open(const std::string& path, int flags) {
  return open(path.c_str(), flags) != -1;
}
std::string PidText(const Holder& holder) {
  return "(pid " + std::to_string(holder.GetPid()) + ")";
}

// Expects a refusal that names all `parts`; an action shows its checks, too.
void ExpectRefusal(const std::vector<std::string>& words, const std::vector<std::string>& parts) {
  const Result result = Process([&] {
                          std::vector<std::string> argv{DRGROUPCTL};
                          argv.insert(argv.end(), words.begin(), words.end());
                          return argv;
                        }())
                            .Wait();
  EXPECT_EQ(result.code, kRefused) << result.err;
  for (const std::string& part : parts) EXPECT_THAT(result.err + result.out, HasSubstr(part));
}

class InUseTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    if (!IsSkipped() && geteuid() != 0) GTEST_SKIP() << "looking into other processes needs root";
  }
  static std::string Path(const std::string& target) { return TargetPaths().at(target); }
};

INSTANTIATE_TEST_SUITE_P(FileSystems, InUseTest,
                         testing::ValuesIn(LongSuiteOn({"ext4", "xfs", "btrfs"})),
                         FileSystemsTest::NameOf);

TEST_P(InUseTest, ARestoreIsRefusedWithTheNameAndGoesOnWhenToldTo) {
  MakeGroup();
  const std::string id = TakeSnapshot();
  const auto taken = ReadContents(TargetPaths());
  ChangeTargets(TargetPaths());
  const auto changed = ReadContents(TargetPaths());
  const Holder reader([] { return Open(Path("share") + "/one", O_RDONLY); });
  const Holder writer([] { return Open(Path("guest") + "/guest.img", O_RDWR); });
  const std::vector<std::string> restore = {"snapshot", "restore", id, "--yes"};
  ExpectRefusal(restore, {"target \"share\" is in use", "open for reading by", PidText(reader),
                          "target \"guest\"", "open for writing by", PidText(writer), "--in-use"});
  EXPECT_EQ(ReadContents(TargetPaths()), changed);

  const Json::Value error = Run({"snapshot", "restore", id, "--yes", "--json"}).Json()["error"];
  ASSERT_EQ(error["users"].size(), 2U);
  EXPECT_EQ(error["users"][0]["target_id"].asString() + error["users"][1]["target_id"].asString(),
            error["target_id"].asString() == "share" ? "shareguest" : "guestshare");
  for (const Json::Value& each : error["users"]) {
    EXPECT_EQ(each["kind"], "open file");
    EXPECT_EQ(each["is_writer"].asBool(), each["target_id"] == "guest");
    EXPECT_EQ(each["pid"].asInt(),
              each["target_id"] == "guest" ? writer.GetPid() : reader.GetPid());
  }

  const Result done = RunWell({"snapshot", "restore", id, "--yes", "--in-use"});
  EXPECT_THAT(done.err, AllOf(HasSubstr(PidText(reader)), HasSubstr(PidText(writer)),
                              HasSubstr("going on, as --in-use says")));
  EXPECT_EQ(ReadContents(TargetPaths()), taken);
}

TEST_P(InUseTest, ASwitchoverNamesTheUsersOfAllTargetsBeforeAnythingRuns) {
  MakeProtected();
  ChangeMain();
  const auto main = MainContents();
  {
    const Holder first([] { return Open(Path("lun"), O_RDWR); });
    const Holder last([] { return Open(Path("guest") + "/guest.img", O_WRONLY); });
    // The bytes of a replica are replaced, so one who reads them counts.
    const Holder copy(
        [] { return Open(Path("share-dr"), O_DIRECTORY) && Open(Path("lun-dr"), O_RDONLY); });
    for (const bool isDry : {true, false}) {
      std::vector<std::string> words = {"switchover", "g"};
      if (isDry) words.emplace_back("--dry-run");
      ExpectRefusal(words, {"in_use", "target \"lun\" is in use", PidText(first),
                            "target \"guest\" is in use", PidText(last), PidText(copy)});
      EXPECT_EQ(States(), AllProtected());
      EXPECT_EQ(MainContents(), main);
    }
    const Json::Value error = Run({"switchover", "g", "--json"}).Json()["error"];
    EXPECT_EQ(error["users"].size(), 3U);
  }
  // Who reads a source sees no change.
  const Holder reader([] { return Open(Path("guest") + "/guest.img", O_RDONLY); });
  RunWell({"switchover", "g"});
  EXPECT_EQ(States(), AllTurned());
  EXPECT_EQ(CopyContents(), main);
}

TEST_P(InUseTest, ASwitchoverGoesOnOverAWriterWhenToldTo) {
  MakeProtected();
  ChangeMain();
  const auto main = MainContents();
  const Holder writer([] { return Open(Path("share") + "/one", O_RDWR); });
  EXPECT_THAT(RunWell({"switchover", "g", "--in-use", "--dry-run"}).err,
              HasSubstr(PidText(writer)));
  EXPECT_EQ(States(), AllProtected());
  EXPECT_THAT(RunWell({"switchover", "g", "--in-use"}).err,
              AllOf(HasSubstr(PidText(writer)), HasSubstr("as --in-use says")));
  EXPECT_EQ(States(), AllTurned());
  EXPECT_EQ(CopyContents(), main);
}

TEST_P(InUseTest, AWriterWhoComesAfterTheCheckIsFoundAndAllTargetsAreAsBefore) {
  MakeProtected();
  ChangeMain();
  const auto main = MainContents();
  // The first target's bytes are on their way when the last one's is opened.
  const std::string bin = Root() + "/bin";
  const std::string pidFile = Root() + "/pid";
  fs::create_directory(bin);
  for (const char* name : {"rsync", "btrfs"}) {
    host_test::WriteFile(bin + "/" + name,
                         "#!/bin/sh\nif mkdir '" + Root() + "/opened' 2>/dev/null; then\n" +
                             "setsid sleep 1000 9>>'" + Path("guest") + "/guest.img' " +
                             "</dev/null >/dev/null 2>&1 3>&- &\necho $! >'" + pidFile +
                             "'\nfi\nexec /usr/bin/" + name + " \"$@\"\n");
    ASSERT_EQ(chmod((bin + "/" + name).c_str(), 0755), 0);
  }
  const std::string path = std::getenv("PATH");
  setenv("PATH", (bin + ":" + path).c_str(), 1);
  const Result result = [] {
    const SentByPrograms byPrograms;
    return Run({"switchover", "g"});
  }();
  setenv("PATH", path.c_str(), 1);
  pid_t pid = 0;
  std::ifstream(pidFile) >> pid;
  ASSERT_GT(pid, 0);
  EXPECT_EQ(result.code, kRefused) << result.err;
  EXPECT_THAT(result.err, AllOf(HasSubstr("target \"guest\" is in use"),
                                HasSubstr("by sleep (pid " + std::to_string(pid) + ")")));
  EXPECT_EQ(States(), AllProtected());
  EXPECT_EQ(MainContents(), main);
  ChangeMain();  // they can be written
  kill(pid, SIGKILL);
  while (fs::exists("/proc/" + std::to_string(pid) + "/fd/9")) std::this_thread::yield();
  RunWell({"switchover", "g"});
  EXPECT_EQ(States(), AllTurned());
}

TEST_P(InUseTest, NothingThatWasAcknowledgedThroughALoopDeviceIsMissingAfterASwitchover) {
  MakeProtected();
  constexpr std::size_t kLine = 512;
  const std::string image = Path("lun");
  const std::size_t room = fs::file_size(image) / kLine;
  ASSERT_GT(room, 10U);
  void* shared = mmap(nullptr, sizeof(std::atomic<std::uint64_t>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto& acknowledged = *new (shared) std::atomic<std::uint64_t>(0);
  const auto line = [](std::uint64_t number) {
    std::string text = "line " + std::to_string(number) + "\n";
    text.resize(kLine, '.');
    return text;
  };
  std::string device;
  {
    std::string why;
    const torture::LoopDevice loop(image, 0, 0, why);
    device = loop.GetPath();
    ASSERT_NE(device, "") << why;
    // It goes over the whole device again and again.
    const Holder writer([&] {
      const int fd = open(device.c_str(), O_RDWR);
      std::thread([&, fd] {
        for (std::uint64_t i = 0;; ++i) {
          const std::string text = line(i);
          const auto at = static_cast<off_t>(i % room * kLine);
          if (pwrite(fd, text.data(), kLine, at) != static_cast<ssize_t>(kLine) || fsync(fd) != 0) {
            _exit(1);
          }
          acknowledged = i + 1;
        }
      }).detach();
      return fd != -1;
    });
    ExpectRefusal({"switchover", "g"}, {"loop device \"" + device + "\"", image});
    EXPECT_EQ(States(), AllProtected());
    // It never was kept from writing.
    const std::uint64_t before = acknowledged;
    while (acknowledged < before + 5) std::this_thread::yield();
  }
  RunWell({"switchover", "g"});
  EXPECT_EQ(States(), AllTurned());
  const std::string copy = host_test::ReadFile(Path("lun-dr"));
  const std::uint64_t count = acknowledged;
  for (std::uint64_t i = count > room ? count - room : 0; i < count; ++i) {
    const std::string found = copy.substr(i % room * kLine, kLine);
    // The next round may have come to this line without an acknowledgement.
    EXPECT_TRUE(found == line(i) || (i + room == count && found == line(count))) << i;
  }
  munmap(shared, sizeof acknowledged);
}

TEST_P(InUseTest, AnOrderlyFailoverIsRefusedAndAForcedOneSaysItAndGoesOn) {
  MakeProtected();
  const Holder writer([] { return Open(Path("guest") + "/guest.img", O_RDWR); });
  ExpectRefusal({"failover", "g"}, {"target \"guest\" is in use", PidText(writer)});
  EXPECT_EQ(States(), AllProtected());
  EXPECT_THAT(RunWell({"failover", "g", "--force", "--yes"}).err,
              AllOf(HasSubstr(PidText(writer)), HasSubstr("going on, as it is forced")));
  EXPECT_EQ(States(), AllFailedOver());
  // What he writes would be in no snapshot of the copy that becomes a replica.
  ExpectRefusal({"reprotect", "g"}, {"target \"guest\" is in use", PidText(writer)});
  EXPECT_THAT(RunWell({"reprotect", "g", "--in-use"}).err, HasSubstr(PidText(writer)));
}

TEST_P(InUseTest, ACopyThatIsReplacedOrRemovedWithItsPlanIsNotTakenFromItsReaders) {
  MakeProtected();
  RunWell({"switchover", "g"});
  const Holder reader([] { return Open(Path("guest") + "/guest.img", O_RDONLY); });
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"unprotect", "g"}, {"unprotect", "g", "--delete-data", "--yes", "--force"}}) {
    ExpectRefusal(words, {"target \"guest\" is in use", PidText(reader)});
    EXPECT_EQ(States(), AllTurned());
  }
  RunWell({"unprotect", "g", "--in-use", "--yes"});
  EXPECT_EQ(States(), AllUnprotected());
}

TEST_P(InUseTest, ATargetIsNotRemovedFromUnderItsUsers) {
  MakeGroup();
  const std::string image = Path("lun");
  {
    const Holder reader([&] { return Open(image, O_RDONLY); });
    ExpectRefusal({"target", "remove", "lun", "--yes"},
                  {"target \"lun\" is in use", PidText(reader)});
    EXPECT_TRUE(fs::exists(image));
  }
  RunWell({"target", "remove", "lun", "--yes"});
  EXPECT_FALSE(fs::exists(image));
}

}  // namespace
}  // namespace e2e
