#include "TolveraService/AccountStore.h"

#include "TolveraService/Secrets.h"

#include <sys/stat.h>

#include <cmath>

namespace tolvera::service {

namespace {

std::filesystem::path prepared(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory.parent_path(), error);
  if (::mkdir(directory.c_str(), 0700) != 0 && !std::filesystem::is_directory(directory))
    throw DatabaseError("cannot make the directory " + directory.string());
  ::chmod(directory.c_str(), 0700);
  return directory / "accounts.sqlite";
}

// Time is kept in whole milliseconds: sums stay exact.
constexpr const char* schema = R"sql(
BEGIN IMMEDIATE;
CREATE TABLE IF NOT EXISTS accounts (
  id INTEGER PRIMARY KEY,
  granted_ms INTEGER NOT NULL CHECK (granted_ms >= 0),
  used_ms INTEGER NOT NULL DEFAULT 0 CHECK (used_ms BETWEEN 0 AND granted_ms)
);
CREATE TABLE IF NOT EXISTS installations (
  token_hash BLOB PRIMARY KEY CHECK (length(token_hash) = 32),
  own_account INTEGER NOT NULL REFERENCES accounts (id),
  signed_in_account INTEGER REFERENCES accounts (id)
) WITHOUT ROWID;
PRAGMA user_version = 1;
COMMIT;
)sql";

Database withSchema(const std::filesystem::path& file) {
  Database database(file);
  database.execute(schema);
  return database;
}

std::int64_t milliseconds(double seconds) { return static_cast<std::int64_t>(std::llround(seconds * 1000)); }
double seconds(std::int64_t milliseconds) { return static_cast<double>(milliseconds) / 1000; }

} // namespace

AccountStore::AccountStore(const std::filesystem::path& directory)
    : database_(withSchema(prepared(directory))),
      insertAccount_(database_, "INSERT INTO accounts (granted_ms) VALUES (?1)"),
      insertInstallation_(database_, "INSERT INTO installations (token_hash, own_account) VALUES (?1, ?2)"),
      findInstallation_(database_, "SELECT a.id, a.granted_ms, a.used_ms, i.signed_in_account IS NOT NULL"
                                   " FROM installations i"
                                   " JOIN accounts a ON a.id = coalesce(i.signed_in_account, i.own_account)"
                                   " WHERE i.token_hash = ?1"),
      chargeAccount_(database_, "UPDATE accounts SET used_ms = min(granted_ms, used_ms + ?2) WHERE id = ?1"
                                " RETURNING granted_ms - used_ms") {}

AccountStore::Signup AccountStore::signUp() {
  Signup signup{makeSecret(), secondsGranted};
  const SecretHash hash = hashOf(signup.token);
  std::scoped_lock lock(mutex_);
  Database::Transaction transaction(database_);
  insertAccount_.with(milliseconds(secondsGranted)).run();
  insertInstallation_.with(hash, database_.lastInsertedRow()).run();
  transaction.commit();
  return signup;
}

std::optional<AccountStore::Account> AccountStore::find(std::string_view token) {
  const SecretHash hash = hashOf(token);
  std::scoped_lock lock(mutex_);
  if (!findInstallation_.with(hash).step()) return std::nullopt;
  const std::int64_t granted = findInstallation_.integer(1);
  const std::int64_t used = findInstallation_.integer(2);
  const Account account{findInstallation_.integer(0), seconds(granted - used), seconds(used),
                        findInstallation_.integer(3) != 0};
  findInstallation_.reset();
  return account;
}

double AccountStore::charge(std::int64_t account, double used) {
  std::scoped_lock lock(mutex_);
  if (!chargeAccount_.with(account, milliseconds(used)).step()) return 0;
  const double left = seconds(chargeAccount_.integer(0));
  chargeAccount_.run();
  return left;
}

} // namespace tolvera::service
