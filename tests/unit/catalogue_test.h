#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vreldrcore/json.h>

#include <string>
#include <vector>

#include "core_calls.h"
#include "log_capture.h"
#include "raw_db.h"
#include "scripted_host.h"

namespace unit {

using scripted_host::Snap;
using test_support::Err;
using test_support::Notice;
using test_support::Warn;
using testing::ElementsAre;
using testing::IsEmpty;
using VrelDRCore::JsonUtil::ToString;

// Paths that the library has built in.
inline const std::string kLinkRoot = "/var/packages/Guestora/etc/drgroup";
inline const std::string kScript = "/var/packages/Guestora/target/sbin//vreldrgroup_db.sh";

// A test on a host without any groups: everything of the tests before it is gone, the database
// script is in place, and the scripted host, the log and the calls to the core libraries are empty.
class CatalogueTest : public testing::Test {
 protected:
  CatalogueTest();
  ~CatalogueTest() override;

  // Makes the catalogue of group "g1" in `dbDir` and forgets the calls that this took.
  void MakeCatalogue();

  // The catalogue's file, and its rows in the order in which they were written.
  RawDb Db() const { return RawDb(dbPath); }
  std::vector<std::string> MetaRows() const;
  std::vector<std::string> SnapRows() const;
  std::vector<std::string> ReplicaRows() const;

  // Adds rows to the catalogue.
  void AddMeta(const std::string& gsnapId, long time) const;
  void AddSnap(const std::string& targetId, int type, const std::string& tsnapId,
               const std::string& gsnapId) const;
  void AddReplica(const std::string& source, const std::string& destination,
                  const std::string& gsnapId) const;

  // From now on the catalogue refuses to do this to the rows of a table; `change` is "INSERT",
  // "UPDATE" or "DELETE".
  void Refuse(const std::string& change, const std::string& table) const;

  // Replaces the database script.
  void WriteScript(const std::string& text) const;

  const std::string dbDir = "/var/groups/one";
  const std::string dbPath = dbDir + "/drgroup.db";
  const std::string linkDir = kLinkRoot + "/g1";
  const std::string linkPath = linkDir + "/drgroup.db";

  scripted_host::Script host;
  test_support::LogCapture log;
  CoreCalls core;
};

// A text as it stands between apostrophes in SQL.
std::string Quoted(const std::string& text);

bool Exists(const std::string& path);

}  // namespace unit
