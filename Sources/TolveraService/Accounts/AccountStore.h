#pragma once

#include "TolveraService/Accounts/Database.h"
#include "TolveraService/Accounts/Secrets.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace tolvera::service {

// The accounts: who may translate, and for how long. An installation is known by its token, of which only a
// hash is kept. It has time of its own; while it is signed in, it uses the time of the local account instead.
// Owned by the server. Any thread; a call waits for the disk. Every operation may throw DatabaseError.
class AccountStore {
 public:
  static constexpr double secondsGranted = 3600;

  // Installations whose token never came back are forgotten after a day, and beyond this count.
  static constexpr std::int64_t unusedLimit = 10000;
  static constexpr std::int64_t unusedLifetime = 86400; // s

  // Opens `accounts.sqlite` in the directory. A missing directory is made with mode 700; one that others may
  // write is refused.
  explicit AccountStore(const std::filesystem::path& directory);

  struct Signup {
    std::string token;
    double secondsLeft = 0;
  };
  // A new installation.
  Signup signUp();

  struct Account {
    SecretHash installation{};
    std::int64_t id = 0; // of the time that the installation uses now
    double secondsLeft = 0;
    double secondsUsed = 0;
    bool signedIn = false;
  };
  // Nothing for an unknown token.
  std::optional<Account> find(std::string_view token);

  // Uses up time of the installation's present account, no more than there is, and gives the rest, in
  // seconds.
  double charge(const SecretHash& installation, double seconds);

  // Ends the sign-in of an installation, and gives its account afterwards.
  Account signOut(const SecretHash& installation);

  // What a page in the browser is for. A link carries a one-time code that stands for one installation and
  // one purpose, for half an hour.
  enum class Purpose { signIn = 1, purchase = 2 };
  struct Link {
    Purpose purpose = Purpose::signIn;
    SecretHash installation{};
    std::string pack;  // to buy, or to go on to after a sign-in; empty for none
    std::string order; // the purchase's number
    bool used = false;
    bool signedIn = false; // the installation, now
  };
  // The code of a new link.
  std::string makeLink(const SecretHash& installation, Purpose purpose, std::string_view pack,
                       std::string_view order);
  // Nothing for a code that is unknown or too old.
  std::optional<Link> findLink(std::string_view code);

  enum class Outcome { done, usedBefore, unknownCode, signInFirst };
  // Binds the link's installation to the local account and moves the installation's own time there.
  Outcome confirmSignIn(std::string_view code);
  // Gives time to the account that the link's installation is signed in to. A link works once.
  Outcome confirmPurchase(std::string_view code, double seconds);

 private:
  void forgetUnused();
  std::optional<Account> account(const SecretHash& installation);
  std::optional<Link> link(const SecretHash& code);
  std::int64_t localAccount();
  // Marks a link as used, in one transaction with `effect`.
  template<typename Effect>
  Outcome confirm(std::string_view code, Purpose purpose, Effect effect);

  std::mutex mutex_;
  std::size_t signups_ = 0; // since the start
  Database database_;
  Database::Statement insertAccount_;
  Database::Statement insertInstallation_;
  Database::Statement markUsed_;
  Database::Statement forgetInstallations_;
  Database::Statement forgetAccounts_;
  Database::Statement findInstallation_;
  Database::Statement chargeAccount_;
  Database::Statement bindInstallation_;
  Database::Statement unbindInstallation_;
  Database::Statement insertLink_;
  Database::Statement dropOldLinks_;
  Database::Statement findLink_;
  Database::Statement useLink_;
  Database::Statement findLocalAccount_;
  Database::Statement insertLocalAccount_;
  Database::Statement takeAll_;
  Database::Statement grant_;
};

} // namespace tolvera::service
