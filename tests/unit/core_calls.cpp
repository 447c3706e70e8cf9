#include "core_calls.h"

#include <vrelcore/vlibc.h>
#include <vreldrcore/file.h>
#include <vreldrcore/sqlite_db.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "real_call.h"

namespace unit {
namespace {

struct Sink {
  std::mutex mutex;
  bool open = false;
  std::vector<std::string> calls;
};

Sink& TheSink() {
  static Sink sink;
  return sink;
}

void Reset(bool open) {
  const std::lock_guard lock(TheSink().mutex);
  TheSink().open = open;
  TheSink().calls.clear();
}

template <class... Text>
void WriteDown(const std::string& name, const std::string& first, const Text&... more) {
  std::string call = name + "(" + first;
  ((call += ", " + more), ...);
  const std::lock_guard lock(TheSink().mutex);
  if (TheSink().open) TheSink().calls.push_back(call + ")");
}

}  // namespace

CoreCalls::CoreCalls() {
  Reset(true);
}
CoreCalls::~CoreCalls() {
  Reset(false);
}
void CoreCalls::Clear() {
  Reset(true);
}

std::vector<std::string> CoreCalls::Of(std::initializer_list<const char*> names) const {
  const std::lock_guard lock(TheSink().mutex);
  std::vector<std::string> found;
  for (const std::string& call : TheSink().calls) {
    for (const char* name : names) {
      if (call.rfind(std::string(name) + "(", 0) == 0) found.push_back(call);
    }
  }
  return found;
}

std::vector<std::string> CoreCalls::OfPlatform() const {
  return Of({"VLIBCExec", "VLIBCFileExist", "VLIBCFileLStat", "CreateDir", "RemoveDir"});
}

}  // namespace unit

using unit::Real;
using unit::WriteDown;

int VLIBCExec(const char* prog, ...) {
  std::vector<const char*> arguments;
  std::va_list list;
  va_start(list, prog);
  for (const char* next = va_arg(list, const char*); next != nullptr;
       next = va_arg(list, const char*)) {
    arguments.push_back(next);
  }
  va_end(list);
  std::string text = prog;
  for (const char* argument : arguments) text += std::string(", ") + argument;
  WriteDown("VLIBCExec", text);
  arguments.resize(4, nullptr);
  return Real<int(const char*, ...)>("VLIBCExec")(prog, arguments[0], arguments[1], arguments[2],
                                                  arguments[3], nullptr);
}

int VLIBCFileExist(const char* path) {
  WriteDown("VLIBCFileExist", path);
  return Real<int(const char*)>("VLIBCFileExist")(path);
}

int VLIBCFileLStat(const char* path, unsigned int fields, struct stat* st) {
  WriteDown("VLIBCFileLStat", path, std::to_string(fields));
  return Real<int(const char*, unsigned int, struct stat*)>("VLIBCFileLStat")(path, fields, st);
}

namespace VrelDRCore {

bool File::CreateDir(const std::string& dir, int mode) {
  char octal[16];
  std::snprintf(octal, sizeof(octal), "%o", static_cast<unsigned int>(mode));
  WriteDown("CreateDir", dir, std::string(octal));
  return Real<bool(const std::string&, int)>(
      "_ZN10VrelDRCore4File9CreateDirERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEi")(
      dir, mode);
}

bool File::RemoveDir(const std::string& dir) {
  WriteDown("RemoveDir", dir);
  return Real<bool(const std::string&)>(
      "_ZN10VrelDRCore4File9RemoveDirERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(dir);
}

bool SqliteDB::Exec(const std::string& sql) const {
  WriteDown("Exec", sql);
  return Real<bool(const SqliteDB*, const std::string&)>(
      "_ZNK10VrelDRCore8SqliteDB4ExecERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(this,
                                                                                               sql);
}

}  // namespace VrelDRCore

#define SQLITE_DB_CONSTRUCTOR \
  "_ZN10VrelDRCore8SqliteDBC2ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEjS8_"

// A constructor cannot be defined a second time in C++; under its symbol's name it is a function.
extern "C" __attribute__((visibility("default"))) void ConstructSqliteDB(
    void* object, const std::string& path, unsigned int busySeconds,
    const std::string& infoTable) __asm__(SQLITE_DB_CONSTRUCTOR);

void ConstructSqliteDB(void* object, const std::string& path, unsigned int busySeconds,
                       const std::string& infoTable) {
  WriteDown("SqliteDB", path, std::to_string(busySeconds), infoTable);
  Real<void(void*, const std::string&, unsigned int, const std::string&)>(SQLITE_DB_CONSTRUCTOR)(
      object, path, busySeconds, infoTable);
}
