#pragma once

#include "TolveraService/Database.h"

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace tolvera::service {

// Who may translate, and for how long. An installation is known by its token, of which only a hash is kept.
// It has time of its own; while it is signed in it uses the time of the local account instead. Owned by the
// server. Any thread; a call blocks for a write to the disk. Every operation may throw DatabaseError.
class AccountStore {
 public:
  static constexpr double secondsGranted = 3600;

  // Opens `accounts.sqlite` in the directory, which is made if need be, with mode 700.
  explicit AccountStore(const std::filesystem::path& directory);

  struct Signup {
    std::string token;
    double secondsLeft = 0;
  };
  // A new installation.
  Signup signUp();

  struct Account {
    std::int64_t id = 0; // of the time that the installation uses now
    double secondsLeft = 0;
    double secondsUsed = 0;
    bool signedIn = false;
  };
  // Nothing for a token that nobody was given.
  std::optional<Account> find(std::string_view token);

  // Uses up time, no more than there is, and gives what is left, in seconds.
  double charge(std::int64_t account, double seconds);

 private:
  std::mutex mutex_;
  Database database_;
  Database::Statement insertAccount_;
  Database::Statement insertInstallation_;
  Database::Statement findInstallation_;
  Database::Statement chargeAccount_;
};

} // namespace tolvera::service
