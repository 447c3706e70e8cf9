#include "catalogue_test.h"

#include <vreldrgroup/db.h>

#include <filesystem>
#include <fstream>

#include "private_namespace.h"

namespace unit {

namespace fs = std::filesystem;

CatalogueTest::CatalogueTest() {
  scripted_host::Install(&host);
  fs::remove_all("/var/groups");
  fs::remove_all("/var/packages");
  std::string why;
  EXPECT_TRUE(test_support::InstallDbScript(why)) << why;
}

CatalogueTest::~CatalogueTest() {
  scripted_host::Install(nullptr);
}

void CatalogueTest::MakeCatalogue() {
  ASSERT_TRUE(VrelDRGroup::DRGroupDB::Init(dbDir, "g1", true));
  ASSERT_THAT(log.Entries(), IsEmpty());
  core.Clear();
}

std::vector<std::string> CatalogueTest::MetaRows() const {
  return Db().Rows(
      "SELECT \"desc\", is_user_locked, cw_type, gsnap_id, tag, gsnap_time, status "
      "FROM gsnap_meta ORDER BY rowid");
}

std::vector<std::string> CatalogueTest::SnapRows() const {
  return Db().Rows(
      "SELECT target_id, target_type, tsnap_id, gsnap_id FROM target_snap_list ORDER BY rowid");
}

std::vector<std::string> CatalogueTest::ReplicaRows() const {
  return Db().Rows(
      "SELECT src_target_id, dst_target_id, gsnap_id FROM target_replica_list ORDER BY rowid");
}

void CatalogueTest::AddMeta(const std::string& gsnapId, long time) const {
  Db().Exec(
      "INSERT INTO gsnap_meta (\"desc\", is_user_locked, cw_type, gsnap_id, tag, gsnap_time, "
      "status) VALUES ('d', 0, 0, " +
      Quoted(gsnapId) + ", 'g1', " + std::to_string(time) + ", 1)");
}

void CatalogueTest::AddSnap(const std::string& targetId, int type, const std::string& tsnapId,
                            const std::string& gsnapId) const {
  Db().Exec("INSERT INTO target_snap_list (target_id, target_type, tsnap_id, gsnap_id) VALUES (" +
            Quoted(targetId) + ", " + std::to_string(type) + ", " + Quoted(tsnapId) + ", " +
            Quoted(gsnapId) + ")");
}

void CatalogueTest::AddReplica(const std::string& source, const std::string& destination,
                               const std::string& gsnapId) const {
  Db().Exec("INSERT INTO target_replica_list (src_target_id, dst_target_id, gsnap_id) VALUES (" +
            Quoted(source) + ", " + Quoted(destination) + ", " + Quoted(gsnapId) + ")");
}

void CatalogueTest::Refuse(const std::string& change, const std::string& table) const {
  Db().Exec("CREATE TRIGGER refuse_" + change + "_" + table + " BEFORE " + change + " ON " + table +
            " BEGIN SELECT RAISE(ABORT, 'refused'); END");
}

void CatalogueTest::WriteScript(const std::string& text) const {
  std::ofstream(kScript) << text;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char byte : text) quoted += byte == '\'' ? "''" : std::string(1, byte);
  return quoted + "'";
}

bool Exists(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(path, error));
}

}  // namespace unit
