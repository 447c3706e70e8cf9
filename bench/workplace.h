#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace bench {

inline constexpr int kTargetsPerSnapshot = 10;

// A group's catalogue, filled with so many rows of target snapshots and as many of replicas, ten
// of each per group snapshot.
struct Catalogue {
  std::string groupId;
  std::string dbDir;
  std::string linkDir;   // where the library finds the link to the database
  std::string linkPath;  // the link itself
  long snapshots = 0;

  // The identifier of a group snapshot in it, counted from 0.
  std::string SnapshotId(long index) const;
};

// The directory that the catalogues of the benchmarks are in; it and they go with the object.
class Workplace {
 public:
  // Makes a directory in `base`. On a failure throws std::runtime_error, here and below.
  explicit Workplace(const std::filesystem::path& base);
  ~Workplace();
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

  // The catalogue of `rows` rows that nobody writes to, made at the first call.
  const Catalogue& Reading(long rows);
  // A catalogue of 1,000 rows to write to.
  const Catalogue& Writing();

  // A catalogue of `rows` rows to delete from what was added.
  const Catalogue& Deleting(long rows);

  // A catalogue of `rows` rows whose group may change its identifier.
  const Catalogue& Renaming(long rows);

  // Whether the directory is in memory, where making a row durable costs nothing.
  bool IsInMemory() const;

 private:
  const Catalogue& Get(const std::string& groupId, long rows);

  std::filesystem::path dir_;
  std::map<std::string, Catalogue> catalogues_;
};

}  // namespace bench
