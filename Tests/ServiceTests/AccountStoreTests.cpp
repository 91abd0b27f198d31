#include "TolveraService/Accounts/AccountStore.h"

#include "Harness/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <random>
#include <thread>

namespace tolvera::service {
namespace {

using Outcome = AccountStore::Outcome;
using Purpose = AccountStore::Purpose;

class AccountStoreTest : public testing::Test {
 protected:
  test::TemporaryDirectory directory_;
  std::filesystem::path state_ = directory_.path() / "state";
};

TEST_F(AccountStoreTest, TokensAreKeptAsHashesInPrivate) {
  std::string token;
  {
    AccountStore store(state_);
    token = store.signUp().token;
    EXPECT_NE(token, store.signUp().token);
    EXPECT_FALSE(store.find("unknown"));
    EXPECT_FALSE(store.find(""));
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(state_).permissions(), perms::owner_all);
    for (const auto& entry : std::filesystem::directory_iterator(state_)) {
      EXPECT_EQ(entry.status().permissions(), perms::owner_read | perms::owner_write) << entry.path();
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string all(std::istreambuf_iterator<char>(file), {});
      EXPECT_EQ(all.find(token), std::string::npos) << entry.path();
    }
  }
  EXPECT_EQ(AccountStore(state_).find(token).value().secondsLeft, 3600);
}

TEST_F(AccountStoreTest, TimeIsUsedUpToTheMillisecond) {
  AccountStore store(state_);
  const std::string token = store.signUp().token;
  const auto installation = store.find(token)->installation;
  for (int i = 0; i < 1000; ++i) store.charge(installation, 0.1);
  EXPECT_EQ(store.find(token)->secondsLeft, 3500);
  EXPECT_EQ(store.find(token)->secondsUsed, 100);
  EXPECT_EQ(store.charge(installation, 1e6), 0);
  EXPECT_EQ(store.find(token)->secondsUsed, 3600);
}

TEST_F(AccountStoreTest, SignInMovesTimeOnce) {
  AccountStore store(state_);
  const std::string first = store.signUp().token;
  const std::string second = store.signUp().token;
  const auto installation = store.find(first)->installation;
  const auto signIn = [&store](const SecretHash& who) {
    return store.confirmSignIn(store.makeLink(who, Purpose::signIn, "", "n"));
  };
  store.charge(installation, 600);
  EXPECT_EQ(signIn(installation), Outcome::done);
  EXPECT_EQ(signIn(installation), Outcome::done); // nothing is left to move
  EXPECT_EQ(store.find(first)->secondsLeft, 3000);
  signIn(store.find(second)->installation); // joins the same account
  EXPECT_EQ(store.charge(installation, 100), 6500);
  EXPECT_EQ(store.signOut(installation).secondsLeft, 0);
  EXPECT_EQ(store.find(second)->secondsLeft, 6500);
  signIn(installation);
  EXPECT_EQ(store.find(first)->secondsLeft, 6500);
}

TEST_F(AccountStoreTest, PurchaseNeedsASignInOnce) {
  AccountStore store(state_);
  const std::string token = store.signUp().token;
  const auto installation = store.find(token)->installation;
  const std::string code = store.makeLink(installation, Purpose::purchase, "hours-5", "n");
  EXPECT_EQ(store.confirmPurchase(code, 18000), Outcome::signInFirst);
  store.confirmSignIn(store.makeLink(installation, Purpose::signIn, "", "n"));
  std::vector<std::thread> clicks;
  std::atomic<int> done = 0;
  for (int i = 0; i < 4; ++i)
    clicks.emplace_back([&] { done += store.confirmPurchase(code, 18000) == Outcome::done ? 1 : 0; });
  for (std::thread& click : clicks) click.join();
  EXPECT_EQ(done, 1);
  EXPECT_EQ(store.find(token)->secondsLeft, 3600 + 18000);
  EXPECT_EQ(store.confirmSignIn(code), Outcome::unknownCode) << "a code is for one purpose";
  EXPECT_EQ(store.confirmPurchase("no code", 18000), Outcome::unknownCode);
}

TEST_F(AccountStoreTest, ChargesSurviveKillsAtRandom) {
  const std::string token = AccountStore(state_).signUp().token;
  std::mt19937 random(20260); // the moments differ with the machine all the same
  constexpr int kills = 50;
  int returned = 0;
  for (int kill = 0; kill < kills; ++kill) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) { // charges, and tells each time by a byte
      AccountStore store(state_);
      const auto installation = store.find(token)->installation;
      do store.charge(installation, 0.001);
      while (::write(pipe[1], "", 1) == 1);
      ::_exit(1);
    }
    ::close(pipe[1]);
    char byte = 0;
    ASSERT_EQ(::read(pipe[0], &byte, 1), 1); // it is at work
    ::usleep(random() % 20000);
    ::kill(child, SIGKILL);
    for (++returned; ::read(pipe[0], &byte, 1) == 1;) ++returned;
    ::close(pipe[0]);
    ::waitpid(child, nullptr, 0);
  }
  // At each kill one charge may have been under way: it is there or it is not.
  const double used = AccountStore(state_).find(token).value().secondsUsed * 1000;
  EXPECT_GE(used, returned);
  EXPECT_LE(used, returned + kills);
}

TEST_F(AccountStoreTest, UnusablePlacesAreRefused) {
  EXPECT_THROW(AccountStore("/proc/tolvera"), DatabaseError);
  std::filesystem::create_directories(state_);
  std::ofstream(state_ / "accounts.sqlite") << "this is not a database: " << std::string(4096, 'x');
  EXPECT_THROW(AccountStore{state_}, DatabaseError);
}

} // namespace
} // namespace tolvera::service
