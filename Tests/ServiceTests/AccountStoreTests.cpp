#include "TolveraService/Accounts/AccountStore.h"

#include "Harness/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <future>

namespace tolvera::service {
namespace {

using Outcome = AccountStore::Outcome;
using Purpose = AccountStore::Purpose;
using std::filesystem::perms;
using testing::HasSubstr;

class Accounts : public testing::Test {
 protected:
  test::TemporaryDirectory directory_;
  std::filesystem::path state_ = directory_.path() / "state";
};

TEST_F(Accounts, TokensAreKeptAsHashesInPrivate) {
  AccountStore store(state_);
  const std::string token = store.signUp().token;
  EXPECT_NE(token, store.signUp().token);
  EXPECT_FALSE(store.find("unknown"));
  EXPECT_FALSE(store.find(""));
  EXPECT_EQ(std::filesystem::status(state_).permissions(), perms::owner_all);
  for (const auto& entry : std::filesystem::directory_iterator(state_)) {
    EXPECT_EQ(entry.status().permissions(), perms::owner_read | perms::owner_write) << entry.path();
    std::ifstream file(entry.path(), std::ios::binary);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(file), {}), Not(HasSubstr(token))) << entry.path();
  }
  EXPECT_EQ(AccountStore(state_).find(token).value().secondsLeft, 3600);
}

TEST_F(Accounts, SignInMovesTimeOnce) {
  AccountStore store(state_);
  const std::string first = store.signUp().token;
  const std::string second = store.signUp().token;
  const auto installation = store.find(first)->installation;
  const auto signIn = [&store](const SecretHash& who) {
    return store.confirmSignIn(store.makeLink(who, Purpose::signIn, "", "n"));
  };
  for (int i = 0; i < 1000; ++i) store.charge(installation, 0.6);
  EXPECT_EQ(store.find(first)->secondsUsed, 600);
  EXPECT_EQ(signIn(installation), Outcome::done);
  EXPECT_EQ(signIn(installation), Outcome::done); // nothing is left to move
  EXPECT_EQ(store.find(first)->secondsLeft, 3000);
  signIn(store.find(second)->installation); // joins the same account
  EXPECT_EQ(store.charge(installation, 100), 6500);
  EXPECT_EQ(store.signOut(installation).secondsLeft, 0);
  EXPECT_EQ(store.find(second)->secondsLeft, 6500);
  signIn(installation);
  EXPECT_EQ(store.find(first)->secondsLeft, 6500);
  EXPECT_EQ(store.charge(installation, 1e6), 0);
  EXPECT_EQ(store.find(first)->secondsUsed, 6600);
}

TEST_F(Accounts, PurchaseNeedsASignInOnce) {
  AccountStore store(state_);
  const std::string token = store.signUp().token;
  const auto installation = store.find(token)->installation;
  const std::string code = store.makeLink(installation, Purpose::purchase, "hours-5", "n");
  EXPECT_EQ(store.confirmPurchase(code, 18000), Outcome::signInFirst);
  store.confirmSignIn(store.makeLink(installation, Purpose::signIn, "", "n"));
  std::vector<std::future<Outcome>> clicks;
  for (int i = 0; i < 4; ++i)
    clicks.push_back(std::async(std::launch::async, [&] { return store.confirmPurchase(code, 18000); }));
  EXPECT_EQ(std::ranges::count(clicks, Outcome::done, &std::future<Outcome>::get), 1);
  EXPECT_EQ(store.find(token)->secondsLeft, 3600 + 18000);
  EXPECT_EQ(store.confirmSignIn(code), Outcome::unknownCode) << "a code is for one purpose";
  EXPECT_EQ(store.confirmPurchase("no code", 18000), Outcome::unknownCode);
}

TEST_F(Accounts, UnusedSignupsAreForgotten) {
  AccountStore store(state_);
  const std::string used = store.signUp().token;
  EXPECT_TRUE(store.find(used));
  store.signUp();
  Database database(state_ / "accounts.sqlite");
  database.execute("UPDATE installations SET made_at = made_at - 90000");
  EXPECT_TRUE(AccountStore(state_).find(used)); // forgets at its start
  for (const char* table : {"SELECT count(*) FROM installations", "SELECT count(*) FROM accounts"}) {
    Database::Statement count(database, table);
    EXPECT_EQ(count.first([](const auto& row) { return row.integer(0); }), 1) << table;
  }
}

TEST_F(Accounts, UnusablePlacesAreRefused) {
  const auto expectRefusal = [](const std::filesystem::path& directory, const std::string& words) {
    EXPECT_THAT([&] { AccountStore store(directory); },
                testing::ThrowsMessage<DatabaseError>(HasSubstr(words)));
  };
  const auto file = state_ / "accounts.sqlite";
  expectRefusal("/proc/tolvera", "/proc/tolvera");
  std::filesystem::create_directories(state_);
  std::filesystem::permissions(state_, perms::owner_all | perms::others_read);
  EXPECT_NO_THROW(AccountStore store(state_));
  EXPECT_EQ(std::filesystem::status(state_).permissions(), perms::owner_all | perms::others_read) << "kept";
  std::filesystem::resize_file(file, 6000); // cut short
  expectRefusal(state_, file.string() + " are damaged");
  EXPECT_EQ(std::filesystem::file_size(file), 6000U) << "left as it was";
  std::filesystem::permissions(state_, perms::group_write, std::filesystem::perm_options::add);
  expectRefusal(state_, "chmod go-w");
}

} // namespace
} // namespace tolvera::service
