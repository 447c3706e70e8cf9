// The power goes while the host writes its records: what was acknowledged is there when they are
// opened again, and they are sound.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>
#include <vreldr/session.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "cut_disk.h"
#include "plan_fixture.h"
#include "tree.h"

namespace host_test {
namespace {

namespace fs = std::filesystem;
using test_support::WriteRecord;
using test_support::WriteStep;

using Rows = std::set<std::string>;

constexpr char kRecords[] = "/replica.db";

// Whether the disk does what the syncs ask of it.
enum class Syncs { kDone, kLeftOut };

// What the program has been told, and how much had been written by then.
struct Acknowledgement {
  std::size_t steps;
  Rows rows;
};

class RecordsPowerCutTest : public PlanTest {
 protected:
  void SetUp() override {
    PlanTest::SetUp();
    MakeShare("a");
    plan_ = MakePlan("a");
  }

  std::string CutDir() const { return Root() + "/cut"; }

  static CutDisk::Files FilesIn(const std::string& dir, const std::string& as) {
    CutDisk::Files files;
    for (const auto& entry : fs::directory_iterator(dir)) {
      const std::string name = entry.path().filename();
      if (("/" + name).starts_with(kRecords) && !name.ends_with("-shm")) {
        std::ostringstream bytes;
        bytes << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        files[as + "/" + name] = bytes.str();
      }
    }
    return files;
  }

  // Makes the files the records of a host at CutDir.
  void Put(const CutDisk::Files& files) const {
    fs::create_directories(CutDir());
    for (const char* each : {"", "-wal", "-shm", "-journal"}) {
      fs::remove(CutDir() + kRecords + each);
    }
    for (const auto& [path, bytes] : files) {
      WriteFile(CutDir() + "/" + fs::path(path).filename().string(), bytes);
    }
  }

  // All rows of the records at CutDir, and why they cannot be read.
  Rows ReadRows(std::string& why) const {
    Rows rows;
    sqlite3* opened = nullptr;
    if (sqlite3_open_v2((CutDir() + kRecords).c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr) !=
        SQLITE_OK) {
      why = "cannot be opened";
    }
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(opened, sqlite3_close);
    const auto select = [&](const std::string& sql) {
      std::vector<std::string> found;
      sqlite3_stmt* made = nullptr;
      sqlite3_prepare_v2(opened, sql.c_str(), -1, &made, nullptr);
      const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> all(made, sqlite3_finalize);
      int code = SQLITE_ERROR;
      while (made != nullptr && (code = sqlite3_step(made)) == SQLITE_ROW) {
        std::string& row = found.emplace_back();
        for (int i = 0; i < sqlite3_column_count(made); ++i) {
          const unsigned char* text = sqlite3_column_text(made, i);
          row += "|" + std::string(text == nullptr ? "" : reinterpret_cast<const char*>(text));
        }
      }
      if (code != SQLITE_DONE) why = sqlite3_errmsg(opened);
      return found;
    };
    const std::vector<std::string> sound = select("PRAGMA integrity_check");
    if (sound != std::vector<std::string>{"|ok"}) why = "is damaged";
    for (const std::string& table : select("SELECT name FROM sqlite_master WHERE type = 'table'")) {
      for (const std::string& row : select("SELECT * FROM \"" + table.substr(1) + "\"")) {
        rows.insert(table + row);
      }
    }
    return rows;
  }

  // Notes that a call has been answered.
  void Acknowledge(const WriteRecord& record) {
    std::string why;
    Put(FilesIn(StateDir(), StateDir()));
    told_.push_back({record.Count(), ReadRows(why)});
    ASSERT_EQ(why, "");
  }

  // Does what writes records, by calls that open them each for itself, and by those of a session.
  void Work(const WriteRecord& record) {
    const VrelDR::TargetOperation source(0, "a");
    for (const bool isAtOnce : {false, true}) {
      std::optional<VrelDR::Session> session;
      if (isAtOnce) session.emplace();
      const std::string first = Take("a").snap_id;
      Acknowledge(record);
      ExpectSync(plan_);
      Acknowledge(record);
      // In the session so much that the log is written back and begun anew.
      for (int i = 0; i < 3; ++i) {
        std::string id;
        const std::string description(isAtOnce ? 700'000 : 10, 'x');
        EXPECT_TRUE(source.TakeSnapshot({description, false, false, "me"}, id)) << source.GetErr();
        Acknowledge(record);
      }
      ExpectSync(plan_);
      Acknowledge(record);
      EXPECT_TRUE(source.DeleteSnapshot(first)) << source.GetErr();
      Acknowledge(record);
    }
  }

  // Whether it is of a table whose rows an operation changes and changes back.
  static bool IsOnItsWay(const std::string& row) {
    return std::ranges::any_of(std::array{"|plans|", "|retention_locks|", "|pending_snaps|",
                                          "|journals|", "|sync_reports|"},
                               [&](const char* table) { return row.starts_with(table); });
  }

  // Whether what a cut after so many steps has left is sound and what was told; "" when it is.
  std::string Judge(std::size_t steps, const CutDisk::Files& left) const {
    Put(left);
    setenv("VRELDR_CONFIG", (CutDir() + ".json").c_str(), 1);
    std::vector<VrelDR::TargetEntry> targets;
    const VrelDR::TargetManager manager;
    const bool isListed = manager.List(targets);
    setenv("VRELDR_CONFIG", (Root() + "/config.json").c_str(), 1);
    if (!isListed || targets.size() != 2) return "the host cannot list its targets";
    std::string why;
    const Rows rows = ReadRows(why);
    if (!why.empty()) return why;
    const auto next = Next(steps);
    const Rows& before = std::prev(next)->rows;
    const Rows& after = next == told_.end() ? before : next->rows;
    if (std::prev(next)->steps == steps) {
      return rows == before ? "" : "something else than what was told";
    }
    for (const std::string& row : before) {
      if (IsOnItsWay(row)) continue;
      if (after.count(row) != 0 && rows.count(row) == 0) return "missing: " + row.substr(0, 200);
    }
    for (const std::string& row : rows) {
      if (IsOnItsWay(row) || before.count(row) != 0 || after.count(row) != 0) continue;
      for (const Acknowledgement& each : told_) {
        const bool isOlder = each.steps < steps && each.rows.count(row) != 0;
        if (isOlder) return "come back: " + row.substr(0, 200);
      }
    }
    return {};
  }

  // Cuts the power at many moments. What is wrong after any of them, and how many states were
  // looked at.
  std::vector<std::string> CutOften(const CutDisk::Files& begin,
                                    const std::vector<WriteStep>& steps, Syncs syncs,
                                    std::size_t& states) {
    std::mt19937 random(1);
    std::vector<std::string> wrong;
    std::set<std::size_t> seen;
    CutDisk disk(begin);
    for (std::size_t i = 0; i < steps.size(); ++i) {
      const bool isSync = steps[i].kind == WriteStep::Kind::kSync;
      if (!isSync || syncs == Syncs::kDone) disk.Do(steps[i]);
      const bool isWrite = steps[i].kind == WriteStep::Kind::kWrite;
      const bool isTold = std::prev(Next(i + 1))->steps == i + 1;
      if (isWrite && !isTold && random() % 96 != 0) continue;
      for (const Survivors each : {Survivors::kNone, Survivors::kAll, Survivors::kSome}) {
        const CutDisk::Files left = disk.Cut(each, random);
        std::size_t hash = std::prev(Next(i + 1))->steps;
        for (const auto& [path, bytes] : left) {
          hash = hash * 31 + std::hash<std::string>()(path + bytes);
        }
        if (!seen.insert(hash).second) continue;
        ++states;
        const std::string fault = Judge(i + 1, left);
        if (!fault.empty()) wrong.push_back("after step " + std::to_string(i) + ": " + fault);
        if (wrong.size() > 5) return wrong;
      }
    }
    return wrong;
  }

  std::vector<Acknowledgement>::const_iterator Next(std::size_t steps) const {
    return std::ranges::find_if(told_, [&](const auto& each) { return each.steps > steps; });
  }

  std::string plan_;
  std::vector<Acknowledgement> told_;
};

INSTANTIATE_TEST_SUITE_P(Volumes, RecordsPowerCutTest, testing::Values("tmpfs"), HostTest::NameOf);

TEST_P(RecordsPowerCutTest, WhatWasAcknowledgedIsThereAndWhatWasWrittenWithoutASyncIsMissed) {
  const CutDisk::Files begin = FilesIn(StateDir(), StateDir());
  std::vector<WriteStep> steps;
  {
    const WriteRecord record(StateDir() + kRecords);
    Acknowledge(record);
    Work(record);
    steps = record.Steps();
  }
  // A host like this one, with other records.
  fs::copy(StateDir(), CutDir(), fs::copy_options::recursive | fs::copy_options::skip_existing);
  std::string config;
  std::getline(std::ifstream(Root() + "/config.json"), config, '\0');
  const std::size_t at = config.find(StateDir() + "\"");
  ASSERT_NE(at, std::string::npos);
  WriteFile(CutDir() + ".json", config.replace(at, StateDir().size(), CutDir()));

  // All that was written is known.
  CutDisk disk(begin);
  for (const WriteStep& each : steps) disk.Do(each);
  std::mt19937 random(1);
  EXPECT_EQ(disk.Cut(Survivors::kAll, random), FilesIn(StateDir(), StateDir()));

  std::size_t states = 0;
  for (const std::string& fault : CutOften(begin, steps, Syncs::kDone, states))
    ADD_FAILURE() << fault;
  EXPECT_GT(states, 100U);
  RecordProperty("states", static_cast<int>(states));

  // Whoever syncs nothing loses something.
  EXPECT_FALSE(CutOften(begin, steps, Syncs::kLeftOut, states).empty());
}

}  // namespace
}  // namespace host_test
