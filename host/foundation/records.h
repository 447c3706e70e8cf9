#pragma once

#include <string>

#include "base/status.h"
#include "vreldrcore/sqlite_db.h"

// The file of the host's records as a file: making it and bringing it up to date. What is in it is
// the business of vreldr/store/.
namespace VrelHost {

using VrelDR::Status;

// How long a command waits for another process that holds the records.
inline constexpr unsigned int kBusySeconds = 20;

// A connection to the records at `path`; nothing is opened yet.
VrelDRCore::SqliteDB RecordsAt(const std::string& path);

// kErrStore, or kErrBusy when another process holds or upgrades the records, with what the
// connection recorded last and what to do.
Status RecordsFailure(const VrelDRCore::SqliteDB& db);

// Makes the file, which must not be there, with the newest schema. It appears whole; it is the
// caller who syncs the directory. One at a time. Side files of records that were there once are
// moved aside.
Status MakeRecords(const std::string& path);

// Brings records of an older version up to date, all of it or nothing; two processes may do so at
// once, one of which waits, and no longer than for any writer. The log of the system tells of it. A
// file that is empty, or holds something else, is refused and stays as it is.
Status UpgradeRecords(const VrelDRCore::SqliteDB& db);

enum class RecordsCondition {
  kGood,
  kDamaged,  // empty, or nothing that could be the records of any version
  kNewer,    // of a version that only a later program knows
};
// A failure when that cannot be told, as of a file that another process holds.
Status ExamineRecords(const std::string& path, RecordsCondition& condition);

// Whether these are records of a version whose hosts had no identity before their first plan, and
// there is no plan. False also when that cannot be told.
bool NeverHadIdentity(const std::string& path);

// What stands beside an SQLite file: a journal of another file of its name would be taken for its.
inline constexpr const char* kSideFiles[] = {"-journal", "-wal", "-shm"};

}  // namespace VrelHost
