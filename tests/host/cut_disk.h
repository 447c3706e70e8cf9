#pragma once

#include <write_record.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace host_test {

// What of that which was not synced a power cut leaves.
enum class Survivors { kNone, kAll, kSome };

// A disk with some files, to which what was recorded is done step by step, and which tells what a
// power cut leaves of them. A sync of a file brings its bytes to disk and not its name; a sync of
// the directory brings the names. Of what was written since, each write may be lost, kept or torn,
// whatever becomes of the others; names are made and removed in order.
class CutDisk {
 public:
  using Files = std::map<std::string, std::string>;  // the bytes, by path

  // `files` are on it, durably.
  explicit CutDisk(const Files& files);

  void Do(const test_support::WriteStep& step);
  Files Cut(Survivors survivors, std::mt19937& random) const;

 private:
  using Step = test_support::WriteStep;
  struct File {
    std::string bytes;  // on disk
    std::vector<Step> pending;
  };
  using Names = std::map<std::string, std::size_t>;  // the place of the file in files_
  // A name that has come, or gone.
  struct Naming {
    std::string path;
    bool is_there;
    std::size_t file;
  };

  static void Apply(const Step& step, std::string& bytes);
  static void Apply(const Naming& naming, Names& names);
  void Name(const Naming& naming);

  std::vector<File> files_;
  Names now_, durable_;
  std::vector<Naming> pending_;
};

}  // namespace host_test
