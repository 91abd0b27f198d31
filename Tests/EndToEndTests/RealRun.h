#pragma once

#include "Async/SystemClock.h"
#include "Fakes/InMemoryPlatform.h"
#include "Harness/PrivateGraph.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "Tolvera/Model/NoWindows.h"

#include <boost/asio/thread_pool.hpp>
#include <gtest/gtest.h>

namespace tolvera::test {

using namespace std::chrono_literals;

// Real time, but every wait is divided by `speed`: the goodbyes of 200 runs would take 17 minutes.
class HurriedClock final : public Clock {
 public:
  explicit HurriedClock(Executor executor) : clock_(std::move(executor)) {}
  [[nodiscard]] WallTime now() const override { return clock_.now(); }
  [[nodiscard]] Duration uptime() const override { return clock_.uptime() * speed; }
  [[nodiscard]] Duration awakeTime() const override { return clock_.awakeTime() * speed; }
  Task<void> sleep(Duration duration) override { return clock_.sleep(duration / speed); }

  int speed = 100; // set before the first wait

 private:
  SystemClock clock_;
};

// A model on the real network and the real sound server. The test steps its main thread.
class RealRun : public testing::Test {
 protected:
  RealRun() {
    graph_.createSource("microphone");
    graph_.setDefaultSource("microphone");
    graph_.createSink("speaker");
    graph_.setDefaultSink("speaker");
    in_.userDefaults.setObject("seenOnboarding", true);
    in_.userDefaults.setObject("captureMode", "mic");
    in_.userDefaults.setObject("uiLanguage", "english");
    in_.userDefaults.setObject("target", "es");
  }

  ~RealRun() override {
    if (model_) run(model_->stop());
    model_.reset();
    EXPECT_TRUE(in_.loop.drain());
    background_.stop();
    background_.join();
  }

  void launch(const std::string& serverURL) {
    in_.userDefaults.setObject("serverURL", serverURL);
    model_ = AppState::make(platform_, noWindows());
    run(model_->bootstrap());
  }

  void run(Task<void> task) {
    auto handle = spawn(in_.loop.executor(), "test", std::move(task));
    ASSERT_TRUE(in_.loop.settleUntil([&] { return handle.finished(); }, 20s));
  }
  bool reaches(Phase::Kind kind) {
    return in_.loop.settleUntil([&] { return model_->phase().is(kind); }, 20s);
  }

  PrivateGraph graph_; // first: it must come before any thread
  InMemoryPlatform in_;
  boost::asio::thread_pool background_{1};
  HurriedClock clock_{background_.get_executor()};
  adapters::BeastURLSession network_{background_.get_executor()};
  adapters::PipeWireAudioSystem audio_;
  platform::Platform platform_{in_.loop.executor(),
                               background_.get_executor(),
                               clock_,
                               network_,
                               audio_,
                               audio_.audioHardware(),
                               audio_.playback(),
                               in_.captureDevice,
                               in_.userDefaults,
                               in_.fileManager,
                               in_.locale,
                               in_.workspace,
                               in_.runningApplications,
                               in_.notificationCenter,
                               in_.interfaceLanguage,
                               platform::DesktopFamily::freedesktop};
  std::shared_ptr<AppState> model_;
};

} // namespace tolvera::test
