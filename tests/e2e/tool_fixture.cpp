#include "tool_fixture.h"

#include <fcntl.h>
#include <json/reader.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <sstream>

#include "tree.h"

extern char** environ;

namespace e2e {

namespace fs = std::filesystem;

namespace {

std::string ReadAll(int fd) {
  std::string text;
  char buffer[65536];
  off_t at = 0;
  for (ssize_t got = 0; (got = pread(fd, buffer, sizeof buffer, at)) > 0; at += got) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return text;
}

// What the tool says on standard error, without the warning that some other program of this machine
// was just waiting for its disk: which of the tests that run beside this one do is no matter of it.
std::string WithoutOthers(const std::string& err) {
  std::istringstream lines(err);
  std::string own;
  for (std::string line; std::getline(lines, line);) {
    const bool isOthers = line.find(", which the kernel does not let go of") != std::string::npos;
    if (!isOthers) own += line + (lines.eof() ? "" : "\n");
  }
  return own;
}

// Expects a failure whose one line on standard error has all `parts`.
void ExpectOneLine(const Result& result, Code code, const std::vector<std::string>& words,
                   const std::vector<std::string>& parts) {
  const std::string about = testing::PrintToString(words) + "\n" + result.err;
  EXPECT_EQ(result.code, code) << about;
  EXPECT_EQ(result.err.rfind("drgroupctl: ", 0), 0U) << about;
  std::string line = result.err;
  // A warning may stand before the one line that tells the failure.
  if (line.rfind("drgroupctl: warning: ", 0) == 0) line.erase(0, line.find('\n') + 1);
  EXPECT_EQ(line.find('\n'), line.size() - 1) << "not one line: " << about;
  for (const std::string& part : parts) EXPECT_THAT(line, testing::HasSubstr(part)) << about;
}

}  // namespace

Json::Value Result::Json() const {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  std::string errors;
  EXPECT_TRUE(reader->parse(out.data(), out.data() + out.size(), &root, &errors))
      << errors << "\nin: " << out << "\nstderr: " << err;
  return root;
}

Process::Process(const std::vector<std::string>& argv, const std::string& outTo) {
  out_ =
      outTo.empty() ? memfd_create("out", MFD_CLOEXEC) : open(outTo.c_str(), O_WRONLY | O_CLOEXEC);
  err_ = memfd_create("err", MFD_CLOEXEC);
  std::vector<char*> pointers;
  for (const std::string& each : argv) pointers.push_back(const_cast<char*>(each.c_str()));
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out_, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err_, STDERR_FILENO);
  EXPECT_EQ(posix_spawnp(&pid_, pointers[0], &actions, nullptr, pointers.data(), environ), 0)
      << argv[0];
  posix_spawn_file_actions_destroy(&actions);
}

Process::~Process() {
  Wait();
  close(out_);
  close(err_);
}

Result Process::Wait() {
  Result result;
  if (pid_ == -1) return result;
  int status = 0;
  while (waitpid(pid_, &status, 0) == -1 && errno == EINTR) {
  }
  pid_ = -1;
  result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = ReadAll(out_);
  result.err = ReadAll(err_);
  return result;
}

std::string Process::ErrorSoFar() const {
  return ReadAll(err_);
}

std::string Process::OutputSoFar() const {
  return ReadAll(out_);
}

void RunSql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK) << path;
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(db);
  sqlite3_close(db);
}

void ToolTest::SetUp() {
  // In the program's own /var, which goes with the program.
  char name[] = "/var/e2e-XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  root_ = name;
  fs::create_directory(VolumePath("v1"));
  fs::create_directory(VolumePath("v2"));
  WriteConfiguration({"v1", "v2"});
  setenv("VRELDR_CONFIG", (root_ + "/config.json").c_str(), 1);
}

void ToolTest::TearDown() {
  unsetenv("VRELDR_CONFIG");
  fs::remove_all(fs::path(LinkDirectory("g")).parent_path());
}

void ToolTest::WriteConfiguration(const std::vector<std::string>& volumes) const {
  std::string entries;
  for (const std::string& each : volumes) {
    entries += (entries.empty() ? "" : ", ") + (R"({"name": ")" + each) +
               R"(", "engine": "local", "path": ")" + VolumePath(each) + R"("})";
  }
  host_test::WriteFile(root_ + "/config.json",
                       R"({"state_dir": ")" + root_ + R"(/state", "volumes": [)" + entries + "]}");
}

Result ToolTest::Run(const std::vector<std::string>& words, const std::string& outTo) {
  std::vector<std::string> argv{DRGROUPCTL};
  argv.insert(argv.end(), words.begin(), words.end());
  Result result = Process(argv, outTo).Wait();
  result.err = WithoutOthers(result.err);
  return result;
}

Result ToolTest::RunWell(const std::vector<std::string>& words) {
  Result result = Run(words);
  EXPECT_EQ(result.code, kDone) << testing::PrintToString(words) << "\n" << result.err;
  return result;
}

Result ToolTest::RunBadly(Code code, const std::vector<std::string>& words,
                          const std::vector<std::string>& parts) {
  Result result = Run(words);
  ExpectOneLine(result, code, words, parts);
  EXPECT_EQ(result.out, "") << testing::PrintToString(words);
  return result;
}

void ToolTest::RunUnasked(const std::vector<std::string>& words,
                          const std::vector<std::string>& parts,
                          const std::vector<std::string>& losses) {
  const Result result = Run(words);
  ExpectOneLine(result, kRefused, words, parts);
  EXPECT_THAT(result.err, testing::HasSubstr("--yes"));
  for (const std::string& loss : losses) EXPECT_THAT(result.out, testing::HasSubstr(loss));
}

void ToolTest::MakeGroup(const std::string& volume) {
  const std::string sources = Root() + "/sources";
  fs::create_directories(sources + "/tree/below");
  host_test::WriteFile(sources + "/disk", std::string(100000, 'L'));
  host_test::WriteFile(sources + "/tree/one", "first text");
  host_test::WriteFile(sources + "/tree/below/two", std::string(70000, 'S'));
  host_test::WriteFile(sources + "/guest.xml", "<guest/>");
  host_test::WriteFile(sources + "/guest.img", std::string(50000, 'G'));
  RunWell({"target", "import", "lun", "--volume", volume, "--type", "lun", sources + "/disk"});
  RunWell({"target", "import", "share", "--volume", volume, "--type", "share", sources + "/tree"});
  RunWell({"target", "import", "guest", "--volume", volume, "--type", "guest",
           sources + "/guest.xml", sources + "/guest.img"});
  RunWell({"group", "create", "g", "--target", "lun", "share", "guest"});
}

std::string ToolTest::TakeSnapshot(const std::vector<std::string>& options) {
  std::vector<std::string> words{"snapshot", "create", "g", "--json"};
  words.insert(words.end(), options.begin(), options.end());
  return RunWell(words).Json()["gsnap_id"].asString();
}

std::vector<std::string> ToolTest::ListSnapshots(const std::string& group) {
  std::vector<std::string> ids;
  const Json::Value document = RunWell({"snapshot", "list", group, "--json"}).Json();
  for (const Json::Value& each : document["snapshots"]) ids.push_back(each["gsnap_id"].asString());
  return ids;
}

std::map<std::string, std::string> ToolTest::TargetPaths() {
  std::map<std::string, std::string> paths;
  const Json::Value document = RunWell({"target", "list", "--json"}).Json();
  for (const Json::Value& each : document["targets"]) {
    paths[each["target_id"].asString()] = each["path"].asString();
  }
  return paths;
}

std::map<std::string, std::string> ToolTest::SnapshotPaths(const std::string& gsnapId) {
  std::map<std::string, std::string> paths;
  const Json::Value document = RunWell({"snapshot", "show", gsnapId, "--json"}).Json();
  for (const Json::Value& each : document["targets"]) {
    EXPECT_EQ(each["exists"], Json::Value(true)) << each;
    paths[each["target_id"].asString()] = each["path"].asString();
  }
  return paths;
}

std::map<std::string, std::string> ToolTest::Tree(const std::string& dir) {
  if (!fs::exists(dir)) return {};
  auto tree = host_test::DescribeTree(dir);
  // Who opens the host's records has files beside them meanwhile, which the directory remembers.
  if (fs::exists(dir + "/state/replica.db")) tree.erase("state");
  if (fs::exists(dir + "/replica.db")) tree.erase(".");
  // What was refused stands in a group's history, too.
  std::set<std::string> histories;
  for (const auto& [name, text] : tree) {
    const fs::path path(name);
    if (!path.filename().string().starts_with("history.")) continue;
    histories.insert({name, path.has_parent_path() ? path.parent_path().string() : "."});
  }
  for (const std::string& each : histories) tree.erase(each);
  return tree;
}

}  // namespace e2e
