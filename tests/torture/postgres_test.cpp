#include <gmock/gmock.h>
#include <vreldr/target_operation.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <memory>

#include "host_fixture.h"
#include "postgres_server.h"
#include "rig.h"
#include "tree.h"

// A database that many clients write, whose files and whose log are two targets on btrfs: a server
// on copies of both, made while it runs, comes up and has everything right.

namespace torture {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using VrelDR::TargetOperation;

// Of the two targets, where they are.
struct Places {
  std::string data, wal;
};

class PostgresTest : public e2e::ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    std::string why;
    if (FindPostgres(why).empty()) GTEST_SKIP() << why;
    for (const char* volume : {"v1", "v2"}) {
      images_.push_back(
          std::make_unique<host_test::MountedImage>("btrfs", VolumePath(volume), why, 2048));
      if (!images_.back()->IsMounted()) GTEST_SKIP() << why;
    }
    fs::permissions(Root(), fs::perms(0755));
    for (const char* id : {"data", "wal"}) {
      RunWell({"target", "create", id, "--volume", "v1", "--type", "share"});
      GiveToPostgres(TargetPaths().at(id));
    }
    RunWell({"group", "create", "g", "--target", "data", "wal"});
    BeginWork();
  }
  void TearDown() override {
    EndWork();
    server_.reset();
    images_.clear();
    ToolTest::TearDown();
  }

  static Places PlacesOf(const std::string& data, const std::string& wal) {
    const auto paths = TargetPaths();
    return {paths.at(data), paths.at(wal)};
  }
  // Makes the database and lets clients write it, with a checkpoint every half second.
  void BeginWork() {
    const Places places = PlacesOf("data", "wal");
    ASSERT_EQ(PostgresServer::Make(places.data + "/pg", places.wal + "/pg"), "");
    server_ = std::make_unique<PostgresServer>(places.data + "/pg", Root() + "/socket");
    ASSERT_EQ(server_->Start(), "");
    const e2e::Result filled =
        RunPostgresProgram(server_->Client("pgbench", {"-i", "-q", "-s", "2", "postgres"}));
    ASSERT_EQ(filled.code, 0) << filled.err;
    clients_.push_back(StartPostgresProgram(
        server_->Client("pgbench", {"-n", "-c", "4", "-j", "2", "-T", "36000", "postgres"})));
    host_test::WriteFile(Root() + "/checkpoints", "checkpoint \\watch 0.5\n");
    clients_.push_back(StartPostgresProgram(
        server_->Client("psql", {"-Xq", "-d", "postgres", "-f", Root() + "/checkpoints"})));
  }
  void EndWork() {
    for (const auto& each : clients_) kill(each->Id(), SIGKILL);
    clients_.clear();
  }
  // The server goes, and leaves its files as they are.
  void KillServer() {
    EndWork();
    server_->Kill();
  }
  PostgresServer& Server() { return *server_; }
  // Waits until clients have committed some more. How many commits there are in all.
  long LetThemCommit() {
    const long before = std::stol(Server().Query("select count(*) from pgbench_history"));
    long now = before;
    while (now < before + 100) {
      now = std::stol(Server().Query("select count(*) from pgbench_history"));
    }
    return now;
  }

  // Starts a server on such directories, which nothing else uses. "" when it comes up and has
  // everything right, with at least so many commits, or what is wrong.
  std::string FindFault(const Places& places, long commits) const {
    const fs::path link = places.data + "/pg/pg_wal";
    fs::remove(link);
    fs::create_directory_symlink(places.wal + "/pg", link);
    fs::remove(places.data + "/pg/postmaster.pid");  // of the server that goes on
    PostgresServer copy(places.data + "/pg", Root() + "/socket-of-copy");
    const std::string why = copy.Start();
    if (!why.empty()) return why;
    const e2e::Result checked =
        RunPostgresProgram(copy.Client("pg_amcheck", {"-d", "postgres", "--install-missing",
                                                      "--heapallindexed", "--parent-check"}));
    if (checked.code != 0) return "pg_amcheck: " + checked.out + checked.err;
    const std::string sums = copy.Query(
        "select count(distinct sum) from (select sum(abalance) from pgbench_accounts union all "
        "select sum(tbalance) from pgbench_tellers union all select sum(bbalance) from "
        "pgbench_branches union all select coalesce(sum(delta), 0) from pgbench_history) as sums");
    if (sums != "1\n") return "the sums differ";
    const long found = std::stol(copy.Query("select count(*) from pgbench_history"));
    return found < commits ? "commits are lost" : "";
  }
  // The same of clones of a group snapshot, which go afterwards.
  std::string FindFaultOf(const std::string& gsnap, long commits) const {
    const Json::Value made = RunWell({"snapshot", "clone", gsnap, "--json"}).Json();
    std::map<bool, std::string> ids;  // by whether it is the log
    for (const Json::Value& each : made["clones"]) {
      ids[each["target_id"].asString().starts_with("wal")] = each["clone_id"].asString();
    }
    const std::string fault = FindFault(PlacesOf(ids[false], ids[true]), commits);
    for (const auto& each : ids) RunWell({"target", "remove", each.second, "--yes"});
    return fault;
  }

 private:
  std::vector<std::unique_ptr<host_test::MountedImage>> images_;
  std::unique_ptr<PostgresServer> server_;
  std::vector<std::unique_ptr<e2e::Process>> clients_;
};

TEST_F(PostgresTest, OnClonesOfAGroupSnapshotItComesUpAndHasEverythingRight) {
  const int rounds = std::min(AskedCount(2), 20);
  int right = 0;
  for (int i = 0; i < rounds; ++i) {
    const long commits = LetThemCommit();
    const std::string gsnap = TakeSnapshot({"--require", "crash"});
    const std::string fault = FindFaultOf(gsnap, commits);
    EXPECT_EQ(fault, "");
    right += fault.empty() ? 1 : 0;
    RunWell({"snapshot", "delete", gsnap, "--yes"});
  }
  std::cout << "clones of group snapshots that were right: " << right << " of " << rounds
            << std::endl;
}

TEST_F(PostgresTest, OnWhatASyncHasBroughtOverItComesUpAndHasEverythingRight) {
  RunWell({"protect", "g", "--volume", "v2", "--dr-group", "gd"});
  const int rounds = std::min(AskedCount(1), 10);
  int right = 0;
  long commits = 0;
  for (int i = 0; i < rounds; ++i) {
    commits = LetThemCommit();
    RunWell({"sync", "g"});
    const std::string gsnap =
        RunWell({"snapshot", "sync", "gd", "--json"}).Json()["gsnap_id"].asString();
    const std::string fault = FindFaultOf(gsnap, commits);
    EXPECT_EQ(fault, "");
    right += fault.empty() ? 1 : 0;
  }
  std::cout << "clones of what syncs have brought over that were right: " << right << " of "
            << rounds << std::endl;
  KillServer();
  RunWell({"failover", "g", "--yes"});
  EXPECT_EQ(FindFault(PlacesOf("data-dr", "wal-dr"), commits), "");
}

// That the tests above see anything.
TEST_F(PostgresTest, OnSnapshotsThatAreTakenOneAfterTheOtherItDoesNotComeUp) {
  LetThemCommit();
  std::map<std::string, std::string> clones;
  for (const std::string id : {"wal", "data"}) {
    const TargetOperation target(VrelDR::kTargetShare, id);
    std::string snapId;
    ASSERT_TRUE(target.TakeSnapshot({}, snapId)) << target.GetErr();
    ASSERT_TRUE(target.CloneSnapshot(snapId, id + "-clone", clones[id])) << target.GetErr();
    Server().Query("checkpoint");
    LetThemCommit();
    Server().Query("checkpoint");
  }
  const std::string fault = FindFault(PlacesOf(clones["data"], clones["wal"]), 0);
  EXPECT_THAT(fault, HasSubstr("did not become ready"));
  std::cout << fault << std::endl;
}

}  // namespace
}  // namespace torture
