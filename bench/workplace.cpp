#include "workplace.h"

#include <linux/magic.h>
#include <sqlite3.h>
#include <sys/vfs.h>
#include <vreldrgroup/db.h>
#include <vreldrgroup/snapshot/gsnap_utils.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace bench {

namespace {

constexpr long kFirstTime = 1'700'000'000;
constexpr long kSecondsApart = 600;

// Identifiers are as long as UUIDs are. Rows of one group snapshot stand together, as they do when
// one group snapshot is taken after the other.
constexpr char kFill[] = R"(
PRAGMA journal_mode = OFF;
PRAGMA synchronous = OFF;
BEGIN;
CREATE TEMP TABLE snapshot AS
  WITH RECURSIVE number (i) AS (
    SELECT 0 UNION ALL SELECT i + 1 FROM number WHERE i + 1 < :snapshots)
  SELECT i, :first_time + i * :apart AS time,
    :group || '-gsnap-' || (:first_time + i * :apart) AS gsnap_id
  FROM number;
CREATE TEMP TABLE target AS
  WITH RECURSIVE number (t) AS (SELECT 0 UNION ALL SELECT t + 1 FROM number WHERE t + 1 < :targets)
  SELECT t, printf('%08x-5ac1-4d0f-9b1e-%012x', t * 7919, t) AS id FROM number;
INSERT INTO gsnap_meta ("desc", is_user_locked, cw_type, gsnap_id, tag, gsnap_time, status)
  SELECT 'nightly snapshot of the group', i % 2, 1, gsnap_id, :group, time, 1
  FROM snapshot ORDER BY i;
INSERT INTO target_snap_list (target_id, target_type, tsnap_id, gsnap_id)
  SELECT id, t % 3 + 1, printf('%08x-77aa-4bcd-8123-%012x', i, t), gsnap_id
  FROM snapshot, target ORDER BY i, t;
INSERT INTO target_replica_list (src_target_id, dst_target_id, gsnap_id)
  SELECT id, 'dr-' || id, gsnap_id FROM snapshot, target ORDER BY i, t;
COMMIT;
)";

void Check(int code, sqlite3* db) {
  if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
  throw std::runtime_error(std::string("cannot fill a catalogue: ") + sqlite3_errmsg(db));
}

void Fill(const Catalogue& catalogue) {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2((catalogue.dbDir + "/drgroup.db").c_str(), &opened,
                                   SQLITE_OPEN_READWRITE, nullptr);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(opened, sqlite3_close);
  Check(code, opened);
  const std::map<std::string, long> numbers = {{":snapshots", catalogue.snapshots},
                                               {":first_time", kFirstTime},
                                               {":apart", kSecondsApart},
                                               {":targets", kTargetsPerSnapshot}};
  for (const char* rest = kFill; *rest != '\0';) {
    sqlite3_stmt* prepared = nullptr;
    Check(sqlite3_prepare_v2(opened, rest, -1, &prepared, &rest), opened);
    const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(prepared,
                                                                               sqlite3_finalize);
    for (int i = 1; i <= sqlite3_bind_parameter_count(prepared); ++i) {
      const std::string name = sqlite3_bind_parameter_name(prepared, i);
      if (name == ":group") {
        sqlite3_bind_text(prepared, i, catalogue.groupId.c_str(), -1, SQLITE_STATIC);
      } else {
        sqlite3_bind_int64(prepared, i, numbers.at(name));
      }
    }
    if (prepared != nullptr) Check(sqlite3_step(prepared), opened);
  }
}

}  // namespace

std::string Catalogue::SnapshotId(long index) const {
  return VrelDRGroup::Utils::ToGsnapId(groupId, kFirstTime + index * kSecondsApart);
}

Workplace::Workplace(const std::filesystem::path& base) {
  std::string name = base / "drgroup-bench.XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot make a directory in " + base.string() + ": " +
                             std::generic_category().message(errno) + "; name another with --dir");
  }
  dir_ = name;
}

Workplace::~Workplace() {
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

const Catalogue& Workplace::Reading(long rows) {
  return Get("read-" + std::to_string(rows), rows);
}

const Catalogue& Workplace::Writing() {
  return Get("write", 1000);
}

const Catalogue& Workplace::Deleting(long rows) {
  return Get("delete-" + std::to_string(rows), rows);
}

const Catalogue& Workplace::Renaming(long rows) {
  return Get("name-" + std::to_string(rows), rows);
}

bool Workplace::IsInMemory() const {
  struct statfs system = {};
  return statfs(dir_.c_str(), &system) == 0 && system.f_type == TMPFS_MAGIC;
}

const Catalogue& Workplace::Get(const std::string& groupId, long rows) {
  const auto known = catalogues_.find(groupId);
  if (known != catalogues_.end()) return known->second;
  Catalogue catalogue;
  catalogue.groupId = groupId;
  catalogue.dbDir = dir_ / groupId;
  catalogue.linkPath = VrelDRGroup::DRGroupDB::GetRef(groupId).GetPath();
  catalogue.linkDir = std::filesystem::path(catalogue.linkPath).parent_path();
  catalogue.snapshots = rows / kTargetsPerSnapshot;
  if (!VrelDRGroup::DRGroupDB::Init(catalogue.dbDir, groupId, true)) {
    throw std::runtime_error("cannot make a catalogue in " + catalogue.dbDir);
  }
  Fill(catalogue);
  return catalogues_.emplace(groupId, catalogue).first->second;
}

}  // namespace bench
