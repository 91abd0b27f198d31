#include "TolveraService/Accounts/Database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tolvera::service {

namespace {

void check(int result, const char* what) {
  if (result != SQLITE_OK) throw DatabaseError(std::string(what) + ": " + sqlite3_errstr(result));
}

DatabaseError damaged(const std::filesystem::path& file) {
  return DatabaseError("The accounts in " + file.string() +
                       " are damaged. Put a copy of the file back, or move it away to begin with new "
                       "accounts. Nothing was changed.");
}

} // namespace

void Database::Close::operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
void Database::Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Database::Database(const std::filesystem::path& file) {
  // Created here because the library would give it the mode of the process's mask. Its log files get the
  // same mode.
  const int created = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (created < 0) throw DatabaseError("cannot open " + file.string());
  ::fchmod(created, 0600);
  ::close(created);
  sqlite3* opened = nullptr;
  const int result =
      sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(opened);
  check(result, "opening the database");
  check(sqlite3_busy_timeout(opened, 5000), "setting the time-out");
  if (!isSound()) throw damaged(file);
  execute("PRAGMA journal_mode = WAL");
  // A commit survives a kill of the process. A loss of power can undo the last commits.
  execute("PRAGMA synchronous = NORMAL");
  execute("PRAGMA foreign_keys = ON");
}

bool Database::isSound() {
  try {
    Statement check(*this, "PRAGMA quick_check(1)");
    return check.first([](const Statement& row) { return row.text(0); }) == "ok";
  } catch (const DatabaseError&) {
    const int error = sqlite3_errcode(handle_.get());
    if (error == SQLITE_NOTADB || error == SQLITE_CORRUPT) return false;
    throw;
  }
}

void Database::execute(const char* sql) {
  check(sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr), "executing");
}

std::int64_t Database::lastInsertedRow() const { return sqlite3_last_insert_rowid(handle_.get()); }

Database::Statement::Statement(Database& database, std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v3(database.handle_.get(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  statement_.reset(statement);
  check(result, "preparing");
}

bool Database::Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  reset();
  if (result != SQLITE_DONE) check(result, "stepping");
  return false;
}

void Database::Statement::run() {
  while (step()) {
  }
}

void Database::Statement::reset() { sqlite3_reset(statement_.get()); }

std::int64_t Database::Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::string Database::Statement::text(int column) const {
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  if (bytes == nullptr) return {};
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

void Database::Statement::bind(int index, std::int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), index, value), "binding");
}

void Database::Statement::bind(int index, std::string_view value) {
  check(
      sqlite3_bind_text64(statement_.get(), index, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8),
      "binding");
}

void Database::Statement::bind(int index, std::span<const std::uint8_t> value) {
  check(sqlite3_bind_blob64(statement_.get(), index, value.data(), value.size(), SQLITE_TRANSIENT),
        "binding");
}

Database::Transaction::Transaction(Database& database) : database_(database) {
  database_.execute("BEGIN IMMEDIATE");
}

Database::Transaction::~Transaction() {
  if (!open_) return;
  try {
    database_.execute("ROLLBACK");
  } catch (const DatabaseError&) {
    // Nothing was written. The next statement reports the fault.
  }
}

void Database::Transaction::commit() {
  database_.execute("COMMIT");
  open_ = false;
}

} // namespace tolvera::service
