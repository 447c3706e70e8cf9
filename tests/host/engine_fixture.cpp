#include "engine_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "base/kill_point.h"
#include "engine/tables.h"
#include "tree.h"

namespace host_test {

namespace fs = std::filesystem;
using VrelDR::Status;

Status EngineTarget::Create(const VrelDR::TargetContent& content) const {
  VrelDR::Watcher watcher;
  return engine->CreateTarget(place, content, watcher);
}

Status EngineTarget::CheckPlace(VrelDR::PlaceUse use) const {
  VrelDR::Watcher watcher;
  return engine->CheckPlace(place, use, watcher);
}

Status EngineTarget::Remove() const {
  VrelDR::Watcher watcher;
  return engine->RemoveTarget(place, watcher);
}

Status EngineTarget::TakeSnapshot(const std::string& id) const {
  VrelDR::Watcher watcher;
  return engine->TakeSnapshot(place, id, watcher);
}

std::set<std::string> EngineTarget::Snapshots() const {
  VrelDR::Watcher watcher;
  VrelDR::SnapshotIds ids;
  const Status status = engine->ListSnapshots(place, ids, watcher);
  EXPECT_TRUE(status.IsOk()) << status.message;
  return {ids.begin(), ids.end()};
}

Status EngineTarget::RemoveSnapshot(const std::string& id) const {
  VrelDR::Watcher watcher;
  return engine->RemoveSnapshot(place, id, watcher);
}

Status EngineTarget::Restore(const std::string& id) const {
  VrelDR::Watcher watcher;
  return engine->RestoreSnapshot(place, id, watcher);
}

Status EngineTarget::Clone(const std::string& id, const EngineTarget& clone) const {
  VrelDR::Watcher watcher;
  return engine->CloneSnapshot(place, id, clone.place, watcher);
}

Status EngineTarget::Demote() const {
  VrelDR::Watcher watcher;
  Status status = engine->Quiesce(place, watcher);
  return status.IsOk() ? engine->Demote(place, watcher) : status;
}

Status EngineTarget::Promote(const std::string& id) const {
  VrelDR::Watcher watcher;
  return engine->Promote(place, id, VrelDR::Manner::kOrderly, watcher);
}

Status EngineTarget::CleanUp() const {
  VrelDR::Watcher watcher;
  return engine->CleanUp(place, watcher);
}

EngineTarget EngineTest::Side::Other(const std::string& id, int targetType) const {
  return {engine, {id, targetType, id}};
}

Status EngineTest::Side::Drop(const std::string& keepId) const {
  VrelDR::Watcher watcher;
  return LinkOf(*this, *this)->Drop(place, keepId, watcher);
}

void TestWatcher::Tell(std::uint64_t done, std::uint64_t total, std::uint64_t sent) {
  EXPECT_LE(done, total);
  EXPECT_GE(done, done_);
  done_ = done;
  total_ = total;
  sent_ = sent;
}

bool TestWatcher::GoesOn() {
  if (sent_ < stop_after_) return true;
  stopped_ = std::chrono::steady_clock::now();
  return false;
}

std::string EngineTest::NameOf(const testing::TestParamInfo<std::string>& parameter) {
  std::string name = parameter.param;
  name.replace(name.find('-'), 1, "To");
  return name;
}

void EngineTest::SetUp() {
  root_ = MakeRoot();
  if (IsSkipped() || HasFatalFailure()) return;
  const char* path = std::getenv("PATH");
  search_path_ = path == nullptr ? "" : path;
  const std::string types = GetParam();
  Open(a_, "a", types.substr(0, types.find('-')), "source");
  if (!IsSkipped() && !HasFatalFailure()) {
    Open(b_, "b", types.substr(types.find('-') + 1), "replica");
  }
}

std::string EngineTest::MakeRoot() {
  char name[] = "/var/engine-test-XXXXXX";
  EXPECT_NE(mkdtemp(name), nullptr);
  return name;
}

void EngineTest::TearDown() {
  FullSpeed();
}

void EngineTest::Open(Side& side, const std::string& name, const std::string& type,
                      const std::string& id) {
  side.type = type;
  side.path = root_ + "/" + name;
  fs::create_directory(side.path);
  if (type != "tmpfs" && type != "fake") {
    std::string why;
    side.image = std::make_unique<MountedImage>(type, side.path, why);
    if (!side.image->IsMounted()) GTEST_SKIP() << why;
  }
  MakeEngine(side, name);
  VrelDR::Watcher watcher;
  side.place = {id, VrelDR::kTargetShare, {}};
  ASSERT_TRUE(
      side.engine->PreparePlace({id, VrelDR::kTargetShare}, side.place.locator, watcher).IsOk());
  const Status status = side.Create({});
  ASSERT_TRUE(status.IsOk()) << status.message;
}

void EngineTest::MakeEngine(Side& side, const std::string& name) {
  side.config.name = name;
  side.config.engine = side.IsFake() ? "fake" : "local";
  side.config.settings["path"] = side.path;
  const VrelDR::EngineRow* row = nullptr;
  std::string where;
  const Status status = VrelDR::FindEngineRow(side.config, {}, row, where);
  ASSERT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(where, side.path);
  side.engine = row->make(side.config, {});
}

std::unique_ptr<VrelDR::Link> EngineTest::LinkOf(const Side& from, const Side& to) {
  std::unique_ptr<VrelDR::Link> link;
  const Status status =
      VrelDR::MakeLink({from.config, from.identity}, {to.config, to.identity}, {}, link);
  EXPECT_TRUE(status.IsOk()) << status.message;
  return link;
}

void EngineTest::Take(const Side& side, const std::string& id) {
  const Status status = side.TakeSnapshot(id);
  ASSERT_TRUE(status.IsOk()) << status.message;
}

Status EngineTest::TryShip(const Side& from, const std::string& id, const std::string& base,
                           const Side& to, VrelDR::Watcher& watcher) {
  return LinkOf(from, to)->Ship(from.place, id, base, to.place, watcher);
}

std::uint64_t EngineTest::Ship(const Side& from, const std::string& id, const std::string& base,
                               const Side& to) {
  TestWatcher watcher;
  const Status status = TryShip(from, id, base, to, watcher);
  EXPECT_TRUE(status.IsOk()) << status.message;
  EXPECT_EQ(watcher.GetDone(), watcher.GetTotal());
  return watcher.GetSent();
}

void EngineTest::ExpectSame(const Side& one, const Side& other, const std::string& id) {
  SCOPED_TRACE(id);
  ExpectTree(other.SnapshotPath(id), DescribeTree(one.SnapshotPath(id)));
}

void EngineTest::ExpectTree(const std::string& path,
                            const std::map<std::string, std::string>& expected) {
  auto found = DescribeTree(path);
  // Only what differs is worth reading.
  for (const auto& [name, text] : expected) {
    EXPECT_EQ(found[name], text) << name << " in " << path;
    found.erase(name);
  }
  for (const auto& [name, text] : found) ADD_FAILURE() << "too much in " << path << ": " << name;
}

void EngineTest::ExpectStatus(const Status& status, int code, const std::string& part) {
  EXPECT_EQ(status.code, code) << status.message;
  EXPECT_NE(status.message.find(part), std::string::npos) << status.message;
  EXPECT_EQ(status.message.find('\n'), std::string::npos) << status.message;
}

void EngineTest::ExpectNothingIncoming(const Side& side) {
  for (const char* area : {"incoming", "tmp"}) {
    const std::string dir = side.path + "/.vreldr/" + area + "/" + side.place.id;
    EXPECT_FALSE(fs::exists(dir)) << dir;
  }
}

void EngineTest::UseProgram(const std::string& name, const std::string& script) {
  const std::string bin = root_ + "/bin";
  fs::create_directory(bin);
  WriteFile(bin + "/" + name, "#!/bin/sh\n" + script);
  ASSERT_EQ(chmod((bin + "/" + name).c_str(), 0755), 0);
  setenv("PATH", (bin + ":" + search_path_).c_str(), 1);
}

void EngineTest::SlowDown() {
  // Each piece has half a megabyte.
  setenv("VRELDR_SLOW_POINT", std::string(VrelDR::kShipPiece).c_str(), 1);
  UseProgram("rsync", "exec /usr/bin/rsync --bwlimit=4m \"$@\"\n");
  // After four megabytes nothing comes any more.
  UseProgram("btrfs",
             "case \"$*\" in *--no-data*|*receive*) exec /usr/bin/btrfs \"$@\" ;; esac\n"
             "/usr/bin/btrfs \"$@\" | { head -c 4000000; exec sleep 1000; }\n");
}

void EngineTest::FullSpeed() {
  unsetenv("VRELDR_SLOW_POINT");
  setenv("PATH", search_path_.c_str(), 1);
}

std::string RandomBytes(std::size_t count) {
  static std::mt19937_64 generator(1);
  std::string bytes(count, '\0');
  for (std::size_t at = 0; at + 8 <= count; at += 8) {
    const std::uint64_t value = generator();
    std::memcpy(&bytes[at], &value, 8);
  }
  return bytes;
}

void Overwrite(const std::string& path, std::size_t at, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY);
  ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)),
            static_cast<ssize_t>(bytes.size()));
  close(fd);
}

void MakeOddTree(const std::string& root) {
  MakeSampleTree(root);
  WriteFile(root + "/-leading dash", "dash");
  WriteFile(root + "/* ? [a] $HOME `id` \\", "shell");
  WriteFile(root + "/not utf-8 \xff\xfe", "bytes");
  fs::create_directory(root + "/--delete");
  WriteFile(root + "/--delete/:a:b", "colons");
  WriteFile(root + "/closed", "nobody may read this");
  EXPECT_EQ(chmod((root + "/closed").c_str(), 0), 0);
  fs::create_directory(root + "/closed folder");
  WriteFile(root + "/closed folder/inside", "inside");
  EXPECT_EQ(chmod((root + "/closed folder").c_str(), 0), 0);
  for (const char* name : {"/one", "/becomes folder", "/removed"}) WriteFile(root + name, name);
  fs::create_directories(root + "/becomes file/with/content");
  WriteFile(root + "/becomes file/with/content/x", "x");
  WriteFile(root + "/unnoticed", "same size, first");
  for (const char* name : {"/pair b", "/pair c"}) {
    if (name == std::string("/pair b")) WriteFile(root + "/pair a", std::string(100'000, 'p'));
    fs::create_hard_link(root + "/pair a", root + name);
  }
  WriteFile(root + "/alone a", "to be one file");
  WriteFile(root + "/alone b", "to be one file");
  fs::create_symlink("one", root + "/link a");
  fs::create_hard_link(root + "/link a", root + "/link b");
  (void)!setxattr((root + "/one").c_str(), "user.goes", "x", 1, 0);
}

void ChangeOddTree(const std::string& root) {
  fs::remove(root + "/removed");
  fs::rename(root + "/folder", root + "/folder renamed");
  fs::rename(root + "/one", root + "/-two");
  (void)!removexattr((root + "/-two").c_str(), "user.goes");
  fs::remove(root + "/becomes folder");
  fs::create_directory(root + "/becomes folder");
  WriteFile(root + "/becomes folder/new", "new");
  fs::remove_all(root + "/becomes file");
  WriteFile(root + "/becomes file", "now a file");
  // Nothing but the bytes tells that this one was changed.
  struct stat st;
  ASSERT_EQ(lstat((root + "/unnoticed").c_str(), &st), 0);
  WriteFile(root + "/unnoticed", "same size, later");
  const struct timespec times[] = {st.st_atim, st.st_mtim};
  EXPECT_EQ(utimensat(AT_FDCWD, (root + "/unnoticed").c_str(), times, 0), 0);
  // Of three names of one file two stay one; the third is another file now.
  fs::remove(root + "/pair b");
  WriteFile(root + "/pair b", std::string(50'000, 'q'));
  WriteFile(root + "/pair a", std::string(100'000, 'r'));
  fs::remove(root + "/alone b");
  fs::create_hard_link(root + "/alone a", root + "/alone b");
  fs::remove(root + "/link b");
  fs::create_symlink("one", root + "/link b");
  fs::remove(root + "/pipe");
  WriteFile(root + "/pipe", "not one any more");
  const int fd = open((root + "/sparse").c_str(), O_WRONLY);
  EXPECT_EQ(pwrite(fd, "changed", 7, 7 << 20), 7);
  EXPECT_EQ(ftruncate(fd, 8 << 20), 0);
  close(fd);
}

}  // namespace host_test
