#include "Platform/Linux/ExecutorNotificationCenter.h"

#include "Support/TestLoop.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tolvera {
namespace {

using Registration = platform::NotificationCenter::Registration;

class DesktopNotifications : public testing::Test {
 protected:
  std::unique_ptr<Registration> note(std::string_view name, const std::string& text) {
    return center->addObserver(name, [this, text] {
      EXPECT_EQ(std::this_thread::get_id(), mainThread);
      noted += text;
    });
  }

  const std::thread::id mainThread = std::this_thread::get_id();
  test::TestLoop loop;
  std::unique_ptr<adapters::ExecutorNotificationCenter> center =
      std::make_unique<adapters::ExecutorNotificationCenter>(loop.executor());
  std::string noted;
};

TEST_F(DesktopNotifications, ReachTheObserversOfTheirNameOnTheMainThreadAndInOrder) {
  const auto first = note("output", "a");
  const auto second = note("output", "b");
  const auto other = note("input", "c");
  std::thread([this] { center->post("output"); }).join();
  EXPECT_EQ(noted, "");
  loop.settle();
  EXPECT_EQ(noted, "ab");
}

TEST_F(DesktopNotifications, StayAwayFromAnObserverThatWentWhileTheyWereOnTheirWay) {
  auto first = note("output", "a");
  const auto second = note("output", "b");
  center->post("output");
  first.reset();
  loop.settle();
  EXPECT_EQ(noted, "b");
}

TEST_F(DesktopNotifications, LetAnObserverEndAndAddObservations) {
  std::unique_ptr<Registration> own, next, added;
  own = center->addObserver("output", [&] {
    noted += "own ";
    own.reset();
    next.reset();
    added = note("output", "added ");
  });
  next = note("output", "next ");
  center->post("output");
  loop.settle();
  EXPECT_EQ(noted, "own ");
  center->post("output");
  loop.settle();
  EXPECT_EQ(noted, "own added ");
}

TEST_F(DesktopNotifications, GoNowhereWhenTheCenterIsGone) {
  const auto observer = note("output", "a");
  const auto post = center->poster();
  center->post("output");
  center.reset();
  post("output");
  loop.settle();
  EXPECT_EQ(noted, "");
}

TEST_F(DesktopNotifications, ComeFromManyThreadsWhileObserversComeAndGo) {
  constexpr int posts = 500;
  int counted = 0;
  const auto steady = center->addObserver("output", [&counted] { ++counted; });
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index)
    threads.emplace_back([post = center->poster()] {
      for (int number = 0; number < posts; ++number) post("output");
    });
  for (int number = 0; number < posts; ++number) {
    const auto passing = note("output", "");
    loop.settle();
  }
  for (std::thread& thread : threads) thread.join();
  loop.settle();
  EXPECT_EQ(counted, 4 * posts);
}

} // namespace
} // namespace tolvera
