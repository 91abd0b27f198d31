#pragma once

#include "TolveraService/Accounts/Database.h"
#include "TolveraService/Accounts/Secrets.h"

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
    SecretHash installation{};
    std::int64_t id = 0; // of the time that the installation uses now
    double secondsLeft = 0;
    double secondsUsed = 0;
    bool signedIn = false;
  };
  // Nothing for a token that nobody was given.
  std::optional<Account> find(std::string_view token);

  // Uses up time of whatever account the installation has now, no more than there is, and gives what is
  // left, in seconds.
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
  // Nothing for a code that nobody was given, or that is too old.
  std::optional<Link> findLink(std::string_view code);

  enum class Outcome { done, usedBefore, unknownCode, signInFirst };
  // Binds the link's installation to the local account. What is left of the installation's own time moves
  // there.
  Outcome confirmSignIn(std::string_view code);
  // Gives time to the account that the link's installation is signed in to. Happens once, whatever comes.
  Outcome confirmPurchase(std::string_view code, double seconds);

 private:
  std::optional<Account> account(const SecretHash& installation);
  std::optional<Link> link(const SecretHash& code);
  std::int64_t localAccount();
  // Uses a link up for what it is meant for, in one transaction with `effect`.
  template<typename Effect>
  Outcome confirm(std::string_view code, Purpose purpose, Effect effect);

  std::mutex mutex_;
  Database database_;
  Database::Statement insertAccount_;
  Database::Statement insertInstallation_;
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
