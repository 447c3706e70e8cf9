#include "vreldrcore/sqlite_db.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sqlite_statement.h"
#include "vrelcore/vlibc.h"

namespace VrelDRCore {

namespace {

// Names the file as one that nobody changes as long as it is open.
std::string ImmutableUri(const std::string& file) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string uri = "file:";
  for (const char c : file) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || c == '/' || c == '.' || c == '-' || c == '_') {
      uri += c;
    } else {
      uri += {'%', kDigits[byte >> 4], kDigits[byte & 0xf]};
    }
  }
  return uri + "?immutable=1";
}

}  // namespace

struct SqliteDB::Connection {
  explicit Connection(unsigned int seconds) : busySeconds(seconds) {}
  ~Connection() {
    idle.clear();
    sqlite3_close_v2(db);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sqlite3* db = nullptr;
  bool isWriter = false;
  unsigned int busySeconds;
  std::chrono::steady_clock::time_point busyDeadline;
  // Statements that were run and may be again, by their text: preparing one costs more than most of
  // them take.
  std::unordered_map<std::string, Statement> idle;

  // SQLITE_OK or why the file cannot be opened; it was not looked into then.
  int Open(const std::string& file, int flags) {
    constexpr int kAlways = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int code = sqlite3_open_v2(file.c_str(), &db, flags | kAlways, nullptr);
    if (code == SQLITE_OK) sqlite3_busy_handler(db, WaitForLock, this);
    return code;
  }

  // Whether the file has a write-ahead log rather than a journal; false when that cannot be told.
  bool FindLog(bool& isLogged) {
    Statement mode(db, "PRAGMA journal_mode");
    if (!mode || mode.Step() != SQLITE_ROW) return false;
    SqliteValueList row = mode.MakeRow();
    mode.ReadRow(row);
    isLogged = row.ValueAt(0).Text() == "wal";
    return true;
  }

  // Whether the file has all that there is of its database, where nobody can write, and SQLite
  // cannot read it: with a write-ahead log it asks for files beside it, which cannot be made there.
  bool IsFrozen() const {
    struct statvfs place;
    if (sqlite3_db_readonly(db, "main") != 1) return false;
    const char* const file = sqlite3_db_filename(db, "main");
    if (statvfs(file, &place) != 0 || (place.f_flag & ST_RDONLY) == 0) return false;
    const int code = sqlite3_exec(db, "SELECT 1 FROM sqlite_master", nullptr, nullptr, nullptr);
    struct stat log;
    return (code & 0xff) == SQLITE_CANTOPEN &&
           (stat(sqlite3_filename_wal(file), &log) != 0 ? errno == ENOENT : log.st_size == 0);
  }

  // A statement for the time of one command, kept for the next one of the same text.
  class Prepared {
   public:
    Prepared(Connection& connection, std::string sql)
        : connection_(connection), statement_(connection.Take(sql)), sql_(std::move(sql)) {}
    Prepared(const Prepared&) = delete;
    Prepared& operator=(const Prepared&) = delete;
    ~Prepared() {
      constexpr std::size_t kMostIdle = 64;
      if (!statement_ || connection_.idle.size() >= kMostIdle) return;
      statement_.Reset();
      connection_.idle.emplace(std::move(sql_), std::move(statement_));
    }
    Statement& operator*() { return statement_; }

   private:
    Connection& connection_;
    Statement statement_;
    std::string sql_;
  };

  // One that is idle, which it is not any more, or a new one.
  Statement Take(const std::string& sql) {
    auto found = idle.extract(sql);
    return found ? std::move(found.mapped()) : Statement(db, sql);
  }

  // SQLite calls this again and again while another connection holds the lock it wants. Its own
  // handler backs off to waits of a tenth of a second, so that a loser goes on losing; writers here
  // hold a lock for a few milliseconds, and short equal waits serve everybody.
  static int WaitForLock(void* self, int calls) {
    auto* connection = static_cast<Connection*>(self);
    const auto now = std::chrono::steady_clock::now();
    if (calls == 0) connection->busyDeadline = now + std::chrono::seconds(connection->busySeconds);
    if (now >= connection->busyDeadline) return 0;
    std::this_thread::sleep_for(std::chrono::microseconds(500));
    return 1;
  }
};

SqliteDB::SqliteDB(const std::string& path, unsigned int busySeconds, const std::string& infoTable)
    : path_(path), busySeconds_(busySeconds), infoTable_(infoTable) {}

SqliteDB::SqliteDB(SqliteDB&&) noexcept = default;
SqliteDB& SqliteDB::operator=(SqliteDB&&) noexcept = default;
SqliteDB::~SqliteDB() = default;

bool SqliteDB::IsExisted() const {
  return !path_.empty() && VLIBCFileExist(path_.c_str()) == 1;
}

bool SqliteDB::OpenToRead() const {
  if (connection_) return true;
  if (path_.empty()) {  // to SQLite this would be a database of its own, made on the spot
    SetErr(SQLITE_CANTOPEN, "no path of a database file");
    return false;
  }
  // A leading "./" keeps names such as ":memory:" the file names that they are here.
  const std::string file = path_.front() == '/' ? path_ : "./" + path_;
  auto connection = std::make_unique<Connection>(busySeconds_);
  int code = connection->Open(file, SQLITE_OPEN_READWRITE);
  if (code == SQLITE_OK && connection->IsFrozen()) {
    connection = std::make_unique<Connection>(busySeconds_);
    code = connection->Open(ImmutableUri(file), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  }
  if (code != SQLITE_OK) {
    SetErr(code, sqlite3_errstr(code));
    return false;
  }
  connection_ = std::move(connection);
  return true;
}

bool SqliteDB::OpenToWrite() const {
  if (!OpenToRead()) return false;
  if (connection_->isWriter) return true;
  bool isLogged = false;
  if (!connection_->FindLog(isLogged)) return Record();
  // A journal that stays saves its creation and removal with every commit, and zeroing its header
  // is the commit, so a crash of the machine cannot bring a finished transaction's journal back. A
  // file that has a write-ahead log keeps that.
  if (sqlite3_exec(connection_->db,
                   isLogged ? "PRAGMA synchronous = FULL"
                            : "PRAGMA journal_mode = PERSIST; PRAGMA synchronous = FULL",
                   nullptr, nullptr, nullptr) != SQLITE_OK) {
    return Record();
  }
  connection_->isWriter = true;
  return true;
}

bool SqliteDB::Record() const {
  const int code = sqlite3_extended_errcode(connection_->db);
  if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) {
    SetErr(0);
    return true;
  }
  SetErr(code, sqlite3_errmsg(connection_->db));
  return false;
}

bool SqliteDB::GetSchemaVersion(int& version) const {
  SelectCommand command;
  command.SetTable(SqliteTableHandler(infoTable_));
  command.AddField("value");
  command.SetCondition(SqliteEqual("key", "version"));
  int found = 0;
  if (!SelectEach(command, [&found](const SqliteValueList& row) {
        row.GetValue("value", found);
        return false;
      })) {
    return false;
  }
  version = found;
  return true;
}

bool SqliteDB::Exec(const std::string& sql) const {
  if (!OpenToWrite()) return false;
  sqlite3_exec(connection_->db, sql.c_str(), nullptr, nullptr, nullptr);
  return Record();
}

bool SqliteDB::Execute(const std::string& sql, const SqliteValueList& values,
                       const std::vector<SqliteCondition>& conditions) const {
  if (!OpenToWrite()) return false;
  Connection::Prepared prepared(*connection_, sql);
  Statement& statement = *prepared;
  if (!statement) return Record();
  for (std::size_t i = 0; i < values.Size(); ++i) {
    if (!statement.Bind(values.ValueAt(i))) return Record();
  }
  if (statement.Bind(conditions)) statement.Step();
  return Record();
}

bool SqliteDB::InsertRecord(const InsertCommand& command) const {
  return Execute(ToSql(command), command.GetFieldValues(), {});
}

bool SqliteDB::UpdateRecord(const UpdateCommand& command) const {
  if (command.ListCondition().empty()) {
    SetErr(SQLITE_MISUSE, "an update needs a condition");
    return false;
  }
  return Execute(ToSql(command), command.GetFieldValues(), command.ListCondition());
}

bool SqliteDB::DeleteRecord(const DeleteCommand& command) const {
  if (command.ListCondition().empty() != command.IsDeleteAll()) {
    SetErr(SQLITE_MISUSE, "a delete needs either a condition or all rows");
    return false;
  }
  return Execute(ToSql(command), SqliteValueList(), command.ListCondition());
}

bool SqliteDB::DeleteRecord(const SqliteTableHandler& table,
                            const SqliteCondition& condition) const {
  DeleteCommand command;
  command.SetTable(table);
  command.SetCondition(condition);
  return DeleteRecord(command);
}

bool SqliteDB::SelectEach(const SelectCommand& command,
                          const std::function<bool(const SqliteValueList&)>& visit) const {
  if (!OpenToRead()) return false;
  Connection::Prepared prepared(*connection_, ToSql(command));
  Statement& statement = *prepared;
  if (!statement || !statement.Bind(command.ListCondition())) return Record();
  if (statement.Step() != SQLITE_ROW) return Record();
  SqliteValueList row = statement.MakeRow();
  do {
    statement.ReadRow(row);
  } while (visit(row) && statement.Step() == SQLITE_ROW);
  return Record();
}

bool SqliteDB::SelectRecords(const SelectCommand& command,
                             std::vector<SqliteValueList>& rows) const {
  return SelectEach(command, [&rows](const SqliteValueList& row) {
    rows.push_back(row);
    return true;
  });
}

bool SqliteDB::SelectRecord(const SelectCommand& command, SqliteValueList& row) const {
  bool found = false;
  return SelectEach(command,
                    [&](const SqliteValueList& first) {
                      row = first;
                      found = true;
                      return false;
                    }) &&
         found;
}

}  // namespace VrelDRCore
