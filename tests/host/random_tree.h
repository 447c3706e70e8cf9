#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace host_test {

// A tree of files that is made and changed at random, the same for the same seed: files that are
// sparse, grown, cut off, punched, preallocated; several names of one file; names that are taken by
// something of another kind; attributes of all kinds, and times that are put back after a change.
class RandomTree {
 public:
  RandomTree(std::string root, std::uint64_t seed) : root_(std::move(root)), random_(seed) {}

  // Makes so many changes; of an empty tree most make something.
  void Change(int count);

 private:
  void ChangeOnce();
  void MakeEntry(const std::string& path);
  void WriteInto(const std::string& path);
  void ChangeAttributes(const std::string& path);
  // All that is there, and the directories among it with the top.
  void List(std::vector<std::string>& all, std::vector<std::string>& files,
            std::vector<std::string>& dirs) const;
  std::string NewName();
  std::string Bytes(std::size_t count);
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  const std::string& OneOf(const std::vector<std::string>& of) { return of[Below(of.size())]; }

  std::string root_;
  std::mt19937_64 random_;
};

}  // namespace host_test
