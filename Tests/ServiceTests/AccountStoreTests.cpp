#include "TolveraService/AccountStore.h"

#include "Support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <fstream>
#include <map>
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

std::string contentsOf(const std::filesystem::path& directory) {
  std::string all;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    std::ifstream file(entry.path(), std::ios::binary);
    all.append(std::istreambuf_iterator<char>(file), {});
  }
  return all;
}

TEST_F(AccountStoreTest, KeepsInstallationsByAHashAloneInAPrivatePlace) {
  std::string token;
  {
    AccountStore store(state_);
    token = store.signUp().token;
    EXPECT_NE(token, store.signUp().token);
    EXPECT_FALSE(store.find("somebody else's"));
    EXPECT_FALSE(store.find(""));
    EXPECT_EQ(contentsOf(state_).find(token), std::string::npos);
    struct stat status{};
    ASSERT_EQ(::stat(state_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    for (const auto& entry : std::filesystem::directory_iterator(state_)) {
      ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 0777, 0600U) << entry.path();
    }
  }
  AccountStore again(state_);
  EXPECT_EQ(again.find(token).value().secondsLeft, 3600);
}

TEST_F(AccountStoreTest, UsesUpTimeToTheMillisecondAndNeverMoreThanThereIs) {
  AccountStore store(state_);
  const std::string token = store.signUp().token;
  const auto installation = store.find(token)->installation;
  for (int i = 0; i < 1000; ++i) store.charge(installation, 0.1);
  EXPECT_EQ(store.find(token)->secondsLeft, 3500);
  EXPECT_EQ(store.find(token)->secondsUsed, 100);
  EXPECT_EQ(store.charge(installation, 1e6), 0);
  EXPECT_EQ(store.find(token)->secondsUsed, 3600);
}

TEST_F(AccountStoreTest, SignInMovesTheTimeLeftOnceAndSignOutLeavesItThere) {
  AccountStore store(state_);
  const std::string first = store.signUp().token;
  const std::string second = store.signUp().token;
  const auto installation = store.find(first)->installation;
  store.charge(installation, 600);
  const std::string code = store.makeLink(installation, Purpose::signIn, "", "n");
  EXPECT_EQ(store.confirmPurchase(code, 60), Outcome::unknownCode); // another purpose
  EXPECT_EQ(store.confirmSignIn(code), Outcome::done);
  EXPECT_EQ(store.confirmSignIn(code), Outcome::usedBefore);
  EXPECT_TRUE(store.find(first)->signedIn);
  EXPECT_EQ(store.find(first)->secondsLeft, 3000);

  // Another installation joins the same account, and both use its time.
  store.confirmSignIn(store.makeLink(store.find(second)->installation, Purpose::signIn, "", "n"));
  EXPECT_EQ(store.find(first)->id, store.find(second)->id);
  EXPECT_EQ(store.charge(installation, 100), 6500);

  const auto after = store.signOut(installation);
  EXPECT_FALSE(after.signedIn);
  EXPECT_EQ(after.secondsLeft, 0);
  EXPECT_EQ(store.find(second)->secondsLeft, 6500);
  store.confirmSignIn(store.makeLink(installation, Purpose::signIn, "", "n"));
  EXPECT_EQ(store.find(first)->secondsLeft, 6500);
}

TEST_F(AccountStoreTest, APurchaseNeedsASignInAndHappensOnce) {
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
  EXPECT_EQ(store.confirmPurchase("no code", 18000), Outcome::unknownCode);
}

// What the child reports: a signup's token, or a charge that has returned.
struct Report {
  std::array<char, 43> token;
  int charges;
};

[[noreturn]] void work(const std::filesystem::path& state, int pipe) {
  AccountStore store(state);
  for (;;) {
    Report report{};
    const auto signup = store.signUp();
    std::copy_n(signup.token.begin(), report.token.size(), report.token.begin());
    const auto installation = store.find(signup.token)->installation;
    for (report.charges = 0; report.charges < 5; ++report.charges) {
      if (::write(pipe, &report, sizeof report) < 0) ::_exit(1);
      store.charge(installation, 1);
    }
    if (::write(pipe, &report, sizeof report) < 0) ::_exit(1);
  }
}

TEST_F(AccountStoreTest, IsWholeAfterKillsAtRandomMoments) {
  std::mt19937 random(20260); // the moments differ with the machine all the same
  std::map<std::string, int> reported;
  for (int kill = 0; kill < 50; ++kill) {
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) work(state_, pipe[1]);
    ::close(pipe[1]);
    Report report{};
    ASSERT_EQ(::read(pipe[0], &report, sizeof report), static_cast<ssize_t>(sizeof report)); // it is at work
    const auto note = [&] {
      reported[std::string(report.token.data(), report.token.size())] = report.charges;
    };
    note();
    ::usleep(random() % 20000);
    ::kill(child, SIGKILL);
    while (::read(pipe[0], &report, sizeof report) == static_cast<ssize_t>(sizeof report)) note();
    ::close(pipe[0]);
    ::waitpid(child, nullptr, 0);
  }
  Database database(state_ / "accounts.sqlite");
  Database::Statement check(database, "PRAGMA integrity_check");
  ASSERT_TRUE(check.step());
  EXPECT_EQ(check.text(0), "ok");
  check.reset();
  AccountStore store(state_);
  EXPECT_GT(reported.size(), 50U);
  for (const auto& [token, charges] : reported) {
    const auto account = store.find(token);
    ASSERT_TRUE(account);
    // One charge may have been under way: it is there or it is not.
    EXPECT_GE(account->secondsUsed, charges);
    EXPECT_LE(account->secondsUsed, charges + 1);
  }
}

TEST_F(AccountStoreTest, SaysSoWhenThereIsNoPlaceForIt) {
  EXPECT_THROW(AccountStore("/proc/tolvera"), DatabaseError);
  std::filesystem::create_directories(state_);
  std::ofstream(state_ / "accounts.sqlite")
      << "this is not a database, and it is longer than a header of one: " << std::string(4096, 'x');
  EXPECT_THROW(AccountStore{state_}, DatabaseError);
}

} // namespace
} // namespace tolvera::service
