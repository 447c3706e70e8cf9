#pragma once

#include <initializer_list>
#include <string>
#include <vector>

// The calls that the library makes to the platform and core libraries. The test program defines
// those functions itself, writes the calls down and hands them on to the real ones.
namespace unit {

// Collects from its construction on. One at a time in a program. The calls that it knows:
//   VLIBCExec(PROG, ARGUMENT...)    VLIBCFileExist(PATH)    VLIBCFileLStat(PATH, FIELDS)
//   CreateDir(DIR, OCTAL MODE)      RemoveDir(DIR)
//   SqliteDB(PATH, SECONDS, TABLE)  the construction of a database object
//   Exec(SQL)                       of SqliteDB
class CoreCalls {
 public:
  CoreCalls();
  ~CoreCalls();
  CoreCalls(const CoreCalls&) = delete;
  CoreCalls& operator=(const CoreCalls&) = delete;

  // The calls of these functions, in order.
  std::vector<std::string> Of(std::initializer_list<const char*> names) const;
  // The calls that touch the file system or start a program.
  std::vector<std::string> OfPlatform() const;
  void Clear();
};

}  // namespace unit
