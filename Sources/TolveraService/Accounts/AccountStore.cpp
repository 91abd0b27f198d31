#include "TolveraService/Accounts/AccountStore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>

namespace tolvera::service {

namespace {

constexpr std::string_view fileName = "accounts.sqlite";

std::filesystem::path prepared(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory.parent_path(), error);
  if (::mkdir(directory.c_str(), 0700) == 0) return directory / fileName;
  struct stat status{};
  if (::stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
    throw DatabaseError("Cannot make the directory " + directory.string() + ".");
  const bool isOurs = status.st_uid == ::geteuid() || status.st_uid == 0;
  if (!isOurs || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    throw DatabaseError("Other users may write in the directory " + directory.string() +
                        ", so they could change accounts. Name a directory of your own with --state, or "
                        "take their right away: chmod go-w.");
  return directory / fileName;
}

// Times are whole milliseconds, so that sums stay exact.
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
CREATE TABLE IF NOT EXISTS local_account (
  one INTEGER PRIMARY KEY CHECK (one = 1),
  account INTEGER NOT NULL REFERENCES accounts (id)
);
CREATE TABLE IF NOT EXISTS links (
  code_hash BLOB PRIMARY KEY CHECK (length(code_hash) = 32),
  purpose INTEGER NOT NULL,
  token_hash BLOB NOT NULL REFERENCES installations (token_hash),
  pack TEXT NOT NULL,
  order_number TEXT NOT NULL,
  made_at INTEGER NOT NULL,
  used INTEGER NOT NULL DEFAULT 0
) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS links_by_age ON links (made_at);
COMMIT;
)sql";

// Version 2, so that a signup can be forgotten whose token never came back.
constexpr const char* addUseOfInstallations = R"sql(
BEGIN IMMEDIATE;
ALTER TABLE installations ADD COLUMN made_at INTEGER NOT NULL DEFAULT 0;
ALTER TABLE installations ADD COLUMN used INTEGER NOT NULL DEFAULT 0;
UPDATE installations SET used = 1;
CREATE INDEX unused_installations ON installations (made_at) WHERE used = 0;
PRAGMA user_version = 2;
COMMIT;
)sql";

std::int64_t firstInteger(const Database::Statement& row) { return row.integer(0); }

std::int64_t versionOf(Database& database) {
  Database::Statement version(database, "PRAGMA user_version");
  return version.first(firstInteger).value_or(0);
}

Database withSchema(const std::filesystem::path& file) {
  Database database(file);
  database.execute(schema);
  if (versionOf(database) < 2) database.execute(addUseOfInstallations);
  return database;
}

constexpr std::int64_t linkLifetime = 1800; // s
constexpr std::size_t signupsBetweenLooks = 256;

std::int64_t now() { return static_cast<std::int64_t>(std::time(nullptr)); }

std::int64_t milliseconds(double seconds) { return static_cast<std::int64_t>(std::llround(seconds * 1000)); }
double seconds(std::int64_t milliseconds) { return static_cast<double>(milliseconds) / 1000; }

} // namespace

AccountStore::AccountStore(const std::filesystem::path& directory)
    : database_(withSchema(prepared(directory))),
      insertAccount_(database_, "INSERT INTO accounts (granted_ms) VALUES (?1)"),
      insertInstallation_(database_,
                          "INSERT INTO installations (token_hash, own_account, made_at) VALUES (?1, ?2, ?3)"),
      markUsed_(database_, "UPDATE installations SET used = 1 WHERE token_hash = ?1"),
      forgetInstallations_(database_, "DELETE FROM installations WHERE token_hash IN (SELECT token_hash FROM"
                                      " (SELECT token_hash, made_at, row_number() OVER"
                                      "  (ORDER BY made_at DESC) AS place FROM installations WHERE used = 0)"
                                      " WHERE made_at < ?1 OR place > ?2)"),
      forgetAccounts_(database_, "DELETE FROM accounts WHERE id NOT IN"
                                 " (SELECT own_account FROM installations)"
                                 " AND id NOT IN (SELECT account FROM local_account)"),
      findInstallation_(database_, "SELECT a.id, a.granted_ms, a.used_ms, i.signed_in_account IS NOT NULL,"
                                   " i.used FROM installations i"
                                   " JOIN accounts a ON a.id = coalesce(i.signed_in_account, i.own_account)"
                                   " WHERE i.token_hash = ?1"),
      chargeAccount_(database_, "UPDATE accounts SET used_ms = min(granted_ms, used_ms + ?2) WHERE id ="
                                " (SELECT coalesce(signed_in_account, own_account) FROM installations"
                                " WHERE token_hash = ?1) RETURNING granted_ms - used_ms"),
      bindInstallation_(database_, "UPDATE installations SET signed_in_account = ?2 WHERE token_hash = ?1"),
      unbindInstallation_(database_,
                          "UPDATE installations SET signed_in_account = NULL WHERE token_hash = ?1"),
      insertLink_(database_, "INSERT INTO links (code_hash, purpose, token_hash, pack, order_number, made_at)"
                             " VALUES (?1, ?2, ?3, ?4, ?5, ?6)"),
      dropOldLinks_(database_, "DELETE FROM links WHERE made_at < ?1"),
      findLink_(database_, "SELECT l.purpose, l.token_hash, l.pack, l.order_number, l.used,"
                           " i.signed_in_account IS NOT NULL"
                           " FROM links l JOIN installations i ON i.token_hash = l.token_hash"
                           " WHERE l.code_hash = ?1 AND l.made_at >= ?2"),
      useLink_(database_, "UPDATE links SET used = 1 WHERE code_hash = ?1"),
      findLocalAccount_(database_, "SELECT account FROM local_account"),
      insertLocalAccount_(database_, "INSERT INTO local_account (one, account) VALUES (1, ?1)"),
      takeAll_(database_, "UPDATE accounts SET granted_ms = used_ms WHERE id = ?1"),
      grant_(database_, "UPDATE accounts SET granted_ms = granted_ms + ?2 WHERE id = ?1") {
  forgetUnused();
}

AccountStore::Signup AccountStore::signUp() {
  Signup signup{makeSecret(), secondsGranted};
  const SecretHash hash = hashOf(signup.token);
  std::scoped_lock lock(mutex_);
  Database::Transaction transaction(database_);
  insertAccount_.with(milliseconds(secondsGranted)).run();
  insertInstallation_.with(hash, database_.lastInsertedRow(), now()).run();
  if (++signups_ % signupsBetweenLooks == 0) forgetUnused();
  transaction.commit();
  return signup;
}

void AccountStore::forgetUnused() {
  forgetInstallations_.with(now() - unusedLifetime, unusedLimit).run();
  forgetAccounts_.with().run();
}

std::optional<AccountStore::Account> AccountStore::find(std::string_view token) {
  const SecretHash hash = hashOf(token);
  std::scoped_lock lock(mutex_);
  return account(hash);
}

std::optional<AccountStore::Account> AccountStore::account(const SecretHash& installation) {
  bool isUsed = true;
  auto found = findInstallation_.with(installation).first([&](const auto& row) {
    isUsed = row.integer(4) != 0;
    const std::int64_t granted = row.integer(1);
    const std::int64_t used = row.integer(2);
    return Account{installation, row.integer(0), seconds(granted - used), seconds(used), row.integer(3) != 0};
  });
  if (!isUsed) markUsed_.with(installation).run();
  return found;
}

double AccountStore::charge(const SecretHash& installation, double used) {
  std::scoped_lock lock(mutex_);
  return seconds(chargeAccount_.with(installation, milliseconds(used)).first(firstInteger).value_or(0));
}

AccountStore::Account AccountStore::signOut(const SecretHash& installation) {
  std::scoped_lock lock(mutex_);
  unbindInstallation_.with(installation).run();
  const auto after = account(installation);
  if (!after) throw DatabaseError("an installation has vanished");
  return *after;
}

std::string AccountStore::makeLink(const SecretHash& installation, Purpose purpose, std::string_view pack,
                                   std::string_view order) {
  std::string code = makeSecret();
  const SecretHash hash = hashOf(code);
  std::scoped_lock lock(mutex_);
  Database::Transaction transaction(database_);
  dropOldLinks_.with(now() - linkLifetime).run();
  insertLink_.with(hash, static_cast<std::int64_t>(purpose), installation, pack, order, now()).run();
  transaction.commit();
  return code;
}

std::optional<AccountStore::Link> AccountStore::findLink(std::string_view code) {
  const SecretHash hash = hashOf(code);
  std::scoped_lock lock(mutex_);
  return link(hash);
}

std::optional<AccountStore::Link> AccountStore::link(const SecretHash& code) {
  return findLink_.with(code, now() - linkLifetime).first([](const auto& row) {
    Link link;
    link.purpose = static_cast<Purpose>(row.integer(0));
    const std::string hash = row.text(1);
    std::copy_n(hash.begin(), std::min(hash.size(), link.installation.size()), link.installation.begin());
    link.pack = row.text(2);
    link.order = row.text(3);
    link.used = row.integer(4) != 0;
    link.signedIn = row.integer(5) != 0;
    return link;
  });
}

std::int64_t AccountStore::localAccount() {
  if (const auto known = findLocalAccount_.with().first(firstInteger)) return *known;
  insertAccount_.with(std::int64_t{0}).run();
  const std::int64_t made = database_.lastInsertedRow();
  insertLocalAccount_.with(made).run();
  return made;
}

template<typename Effect>
AccountStore::Outcome AccountStore::confirm(std::string_view code, Purpose purpose, Effect effect) {
  const SecretHash hash = hashOf(code);
  std::scoped_lock lock(mutex_);
  Database::Transaction transaction(database_);
  const auto found = link(hash);
  if (!found || found->purpose != purpose) return Outcome::unknownCode;
  if (found->used) return Outcome::usedBefore;
  if (purpose == Purpose::purchase && !found->signedIn) return Outcome::signInFirst;
  useLink_.with(hash).run();
  effect(*found);
  transaction.commit();
  return Outcome::done;
}

AccountStore::Outcome AccountStore::confirmSignIn(std::string_view code) {
  return confirm(code, Purpose::signIn, [this](const Link& link) {
    if (link.signedIn) return;
    const auto own = account(link.installation).value();
    const std::int64_t local = localAccount();
    takeAll_.with(own.id).run();
    grant_.with(local, milliseconds(own.secondsLeft)).run();
    bindInstallation_.with(link.installation, local).run();
  });
}

AccountStore::Outcome AccountStore::confirmPurchase(std::string_view code, double granted) {
  return confirm(code, Purpose::purchase, [this, granted](const Link& link) {
    grant_.with(account(link.installation).value().id, milliseconds(granted)).run();
  });
}

} // namespace tolvera::service
