#include "postgres_server.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

namespace torture {

namespace fs = std::filesystem;

namespace {

constexpr char kUser[] = "postgres";
constexpr char kDatabase[] = "postgres";

std::string Program(const std::string& name) {
  std::string why;
  return FindPostgres(why) + "/" + name;
}

bool HasEnded(int pid) {
  siginfo_t info{};
  const bool isAsked =
      waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
  return !isAsked || info.si_pid != 0;
}

}  // namespace

std::string FindPostgres(std::string& why) {
  if (geteuid() != 0 || getpwnam(kUser) == nullptr) {
    why = "root, and the user \"postgres\" of the package postgresql, are needed";
    return {};
  }
  std::string newest;
  std::error_code error;
  for (fs::directory_iterator each("/usr/lib/postgresql", error), end; !error && each != end;
       each.increment(error)) {
    const std::string dir = each->path().string() + "/bin";
    if (fs::exists(dir + "/pg_amcheck") && fs::exists(dir + "/postgres") && dir > newest) {
      newest = dir;
    }
  }
  if (newest.empty()) why = "the package postgresql is not installed";
  return newest;
}

void GiveToPostgres(const std::string& dir) {
  const struct passwd* user = getpwnam(kUser);
  EXPECT_EQ(chown(dir.c_str(), user->pw_uid, user->pw_gid), 0) << dir;
}

std::unique_ptr<e2e::Process> StartPostgresProgram(const std::vector<std::string>& argv) {
  const std::string user = kUser;
  std::vector<std::string> words{"setpriv",       "--reuid=" + user,  "--regid=" + user,
                                 "--init-groups", "--pdeathsig=KILL", "--"};
  words.insert(words.end(), argv.begin(), argv.end());
  return std::make_unique<e2e::Process>(words);
}

e2e::Result RunPostgresProgram(const std::vector<std::string>& argv) {
  return StartPostgresProgram(argv)->Wait();
}

PostgresServer::PostgresServer(std::string dataDir, std::string socketDir)
    : data_dir_(std::move(dataDir)), socket_dir_(std::move(socketDir)) {
  fs::create_directories(socket_dir_);
  GiveToPostgres(socket_dir_);
}

PostgresServer::~PostgresServer() {
  Kill();
}

std::string PostgresServer::Make(const std::string& dataDir, const std::string& walDir) {
  const e2e::Result made =
      RunPostgresProgram({Program("initdb"), "-D", dataDir, "--waldir=" + walDir, "--wal-segsize=1",
                          "--auth=trust", "--no-locale", "--encoding=UTF8"});
  return made.code == 0 ? "" : made.out + made.err;
}

std::string PostgresServer::Start() {
  process_ = StartPostgresProgram(
      {Program("postgres"), "-D", data_dir_, "-k", socket_dir_, "-c", "listen_addresses=", "-c",
       "fsync=on", "-c", "synchronous_commit=on", "-c", "min_wal_size=2MB", "-c",
       "max_wal_size=4MB", "-c", "checkpoint_timeout=30s", "-c", "shared_buffers=16MB"});
  const auto last = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!HasEnded(process_->Id()) && std::chrono::steady_clock::now() < last) {
    if (RunPostgresProgram(Client("pg_isready", {})).code == 0) return {};
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // it is asked again
  }
  const std::string said = process_->ErrorSoFar();
  Kill();
  return "the server did not become ready: " + said;
}

void PostgresServer::Kill() {
  if (process_ == nullptr) return;
  kill(process_->Id(), SIGQUIT);
  process_->Wait();
  process_.reset();
}

std::vector<std::string> PostgresServer::Client(const std::string& program,
                                                const std::vector<std::string>& more) const {
  std::vector<std::string> argv{Program(program), "-h", socket_dir_};
  argv.insert(argv.end(), more.begin(), more.end());
  return argv;
}

std::string PostgresServer::Query(const std::string& sql) const {
  const e2e::Result result =
      RunPostgresProgram(Client("psql", {"-XAtq", "-d", kDatabase, "-c", sql}));
  EXPECT_EQ(result.code, 0) << sql << "\n" << result.err;
  return result.out;
}

}  // namespace torture
