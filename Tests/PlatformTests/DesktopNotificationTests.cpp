#include "Platform/Linux/Desktop/ExecutorNotificationCenter.h"

#include "Harness/TestLoop.h"

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

  std::string settled() {
    loop.settle();
    return noted;
  }

  const std::thread::id mainThread = std::this_thread::get_id();
  test::TestLoop loop;
  std::unique_ptr<adapters::ExecutorNotificationCenter> center =
      std::make_unique<adapters::ExecutorNotificationCenter>(loop.executor());
  std::string noted;
};

TEST_F(DesktopNotifications, ReachTheObserversOfTheirNameOnTheMainThreadAndInOrder) {
  const auto first = note("output", "a");
  auto second = note("output", "b");
  const auto third = note("output", "c");
  const auto other = note("input", "d");
  std::thread([this] { center->post("output"); }).join();
  EXPECT_EQ(noted, "");
  second.reset(); // while it is on its way
  EXPECT_EQ(settled(), "ac");
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
  EXPECT_EQ(settled(), "own ");
  center->post("output");
  EXPECT_EQ(settled(), "own added ");
}

TEST_F(DesktopNotifications, ComeFromManyThreadsUntilTheCenterIsGone) {
  int counted = 0;
  const auto steady = center->addObserver("output", [&counted] { ++counted; });
  const auto post = center->poster();
  std::vector<std::jthread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([post] {
      for (int number = 0; number < 500; ++number) post("output");
    });
  }
  for (int number = 0; number < 500; ++number) {
    const auto passing = note("output", "");
    loop.settle();
  }
  threads.clear();
  loop.settle();
  EXPECT_EQ(counted, 2000);
  post("output");
  center.reset();
  post("output");
  loop.settle();
  EXPECT_EQ(counted, 2000);
}

} // namespace
} // namespace tolvera
