#pragma once

#include "foundation/records.h"
#include "foundation/schema.h"

// What making records and bringing them up to date have in common.
namespace VrelHost {

inline constexpr int kNewest = static_cast<int>(kRecordsSchema.size());

// Makes the tables that versions after `version` up to `last` have, and writes that one down.
bool RunSchema(const VrelDRCore::SqliteDB& db, int version, int last);

// RecordsFailure of whoever upgrades the records.
Status PlainFailure(const VrelDRCore::SqliteDB& db);

// A file that is empty, or holds something else; or the failure of finding that out.
Status NoRecords(const VrelDRCore::SqliteDB& db);

// How what is not committed yet is kept apart from what is.
enum class RecordsJournal {
  kRollback,  // the file is changed, and a journal has what was there
  kLog,       // a write-ahead log has the changes: a commit is one write that is brought to disk
};
// Which of them records at `path` are to have. The log needs memory that processes share through a
// file, which not every file system gives. Tries that out beside the path; one at a time.
Status FindJournal(const std::string& path, RecordsJournal& journal);

bool HasLog(const VrelDRCore::SqliteDB& db);

// Makes the file anew; side files of one of its name go.
Status MakeEmptyFile(const std::string& path);
void RemoveWithSideFiles(const std::string& path);

}  // namespace VrelHost
