#pragma once

namespace VrelDRCore {

// What a code that SqliteDB has recorded means for whoever has to say what to do about it. Codes
// are told apart here and nowhere else.
enum class SqliteFailure {
  kNone,
  kHeld,         // another connection has had it for longer than the command waited
  kNotDatabase,  // no SQLite file at all
  kDamaged,
  kFull,       // it has no room to grow
  kNotOpened,  // it is missing, or its permissions or those of its directory are in the way
  kReadOnly,
  kIo,         // it could not be read or written
  kStatement,  // it lacks what the statement names, such as a table
  kOther
};

// An extended code means what its primary one does. The numbers are SQLite's, which never change;
// callers need nothing of SQLite's own.
constexpr SqliteFailure ToSqliteFailure(int code) {
  switch (code & 0xff) {
    case 0:
      return SqliteFailure::kNone;
    case 1:
      return SqliteFailure::kStatement;
    case 3:
    case 14:
      return SqliteFailure::kNotOpened;
    case 5:
      return SqliteFailure::kHeld;
    case 8:
      return SqliteFailure::kReadOnly;
    case 10:
      return SqliteFailure::kIo;
    case 11:
      return SqliteFailure::kDamaged;
    case 13:
      return SqliteFailure::kFull;
    case 26:
      return SqliteFailure::kNotDatabase;
    default:
      return SqliteFailure::kOther;
  }
}

}  // namespace VrelDRCore
