#pragma once

#include "Async/SystemClock.h"
#include "Fakes/InMemoryPlatform.h"
#include "Harness/PrivateGraph.h"
#include "Harness/TemporaryDirectory.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "Tolvera/Model/NoWindows.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

namespace tolvera::test {

using namespace std::chrono_literals;

// Real time, but every wait is divided by `speed`: the goodbyes of 200 runs would take 17 minutes.
class HurriedClock final : public Clock {
 public:
  explicit HurriedClock(Executor executor) : clock_(std::move(executor)) {}
  [[nodiscard]] WallTime now() const override { return clock_.now(); }
  [[nodiscard]] Duration uptime() const override { return clock_.uptime() * speed.load(); }
  Task<void> sleep(Duration duration) override { return clock_.sleep(duration / speed.load()); }

  std::atomic<int> speed = 100;

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
    backgroundThread_ = std::thread([this] { background_.run(); });
  }

  ~RealRun() override {
    if (model_) run(model_->stop());
    model_.reset();
    EXPECT_TRUE(in_.loop.drain());
    background_.stop();
    backgroundThread_.join();
  }

  AppState& launch(const std::string& serverURL) {
    in_.userDefaults.setObject("serverURL", serverURL);
    model_ = AppState::make(platform_, noWindows());
    run(model_->bootstrap());
    return *model_;
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
  boost::asio::io_context background_{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard_{background_.get_executor()};
  HurriedClock clock_{background_.get_executor()};
  adapters::BeastURLSession network_{background_.get_executor()};
  adapters::PipeWireAudioSystem audio_;
  platform::Platform platform_ = [this] {
    return platform::Platform{in_.loop.executor(),
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
  }();
  std::shared_ptr<AppState> model_;
  std::thread backgroundThread_;
};

// The local service as a process of its own, with a fresh account store.
class ServiceProcess {
 public:
  // Waits until it listens. Port "0" is any; the state survives a restart.
  void start(const std::string& onPort) {
    std::filesystem::remove(log_);
    process_.emplace(std::vector<std::string>{TOLVERA_SERVICE, "--port", onPort, "--state",
                                              directory_ / "state", "--engine", "pocketsphinx"},
                     log_);
    std::string line;
    const auto listening = [&] {
      std::ifstream file(log_);
      while (std::getline(file, line)) {
        if (line.find("listening on") != std::string::npos) return true;
      }
      return false;
    };
    ASSERT_TRUE(eventually(listening, 60s));
    port_ = line.substr(line.rfind(':') + 1);
  }
  void kill() { process_->kill(); }
  [[nodiscard]] const std::string& port() const { return port_; }
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + port_ + "/livetranslate"; }

 private:
  const TemporaryDirectory directory_;
  const std::string log_ = directory_ / "log";
  std::optional<ChildProcess> process_;
  std::string port_;
};

} // namespace tolvera::test
