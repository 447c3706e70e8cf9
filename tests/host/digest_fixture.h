#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "base/fd.h"
#include "contract_rig.h"
#include "engine/local/digest_compare.h"
#include "engine/local/digest_file.h"
#include "engine/local/digest_writer.h"
#include "tree.h"

namespace host_test {

// Two volumes of the local engine, and the digests that are on them.
class KeptDigestsTest : public ContractTest {
 protected:
  static std::string AreaOf(const Side& side) {
    return side.path + "/.vreldr/digests/" + side.place.locator;
  }
  static bool HasDigests(const Side& side, const std::string& id) {
    return std::filesystem::exists(std::filesystem::symlink_status(AreaOf(side) + "/" + id));
  }
  // All that is called as digests are, anywhere on the volume.
  static std::set<std::string> DigestsOn(const Side& side) {
    std::set<std::string> found;
    for (const auto& each : std::filesystem::recursive_directory_iterator(side.path + "/.vreldr")) {
      const std::string path = each.path().string().substr(side.path.size());
      const bool isOne = path.find("/.digests.") != std::string::npos ||
                         (path.find("/digests/") != std::string::npos && each.is_regular_file());
      if (isOne) found.insert(path);
    }
    return found;
  }
  // Whether snapshots there have digests.
  static bool Keeps(const Side& side) { return side.type == "ext4" || side.type == "tmpfs"; }

  // The digests are there, and are those of the snapshot's files as they are now.
  static void ExpectRight(const Side& side, const std::string& id) {
    const std::string top = side.SnapshotPath(id);
    std::set<std::string> names;
    std::map<ino_t, std::string> inodes;
    const VrelDR::Fd dir(open("/var", O_RDONLY | O_DIRECTORY));
    VrelDR::Local::DigestWriter writer(dir.Get(), "expected-digests");
    for (const auto& each : std::filesystem::recursive_directory_iterator(top)) {
      struct stat st;
      ASSERT_EQ(lstat(each.path().c_str(), &st), 0);
      if (!S_ISREG(st.st_mode)) continue;
      const std::string name = each.path().string().substr(top.size() + 1);
      names.insert(name);
      if (!inodes.emplace(st.st_ino, name).second) continue;
      const std::string bytes = ReadFile(each.path());
      writer.BeginFile(name, bytes.size());
      writer.AddData(0, bytes.data(), bytes.size());
      writer.EndFile();
    }
    ASSERT_TRUE(writer.Finish());
    const VrelDR::Fd area(open(AreaOf(side).c_str(), O_RDONLY | O_DIRECTORY));
    std::optional<VrelDR::Local::DigestFile> expected;
    std::optional<VrelDR::Local::DigestFile> kept;
    ASSERT_EQ(VrelDR::Local::DigestFile::Open(dir.Get(), "expected-digests", expected), 0);
    ASSERT_EQ(VrelDR::Local::DigestFile::Open(area.Get(), id, kept), 0) << id;
    std::optional<VrelDR::Local::DigestDifference> difference;
    EXPECT_EQ(VrelDR::Local::CompareDigests(*expected, *kept, difference), 0);
    EXPECT_FALSE(difference) << difference->path << " at " << difference->offset;
    for (const std::string& name : names) {
      std::optional<VrelDR::Local::DigestCursor> cursor;
      EXPECT_EQ(kept->Find(name, cursor), 0);
      EXPECT_TRUE(cursor) << name;
    }
    EXPECT_FALSE(names.empty());
  }
};

}  // namespace host_test
