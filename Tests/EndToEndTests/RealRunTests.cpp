#include "Async/SystemClock.h"
#include "Platform/Linux/BeastURLSession.h"
#include "Platform/Linux/PipeWireAudioSystem.h"
#include "Support/InMemoryPlatform.h"
#include "Support/LoopbackServer.h"
#include "Support/PrivateGraph.h"
#include "Support/TemporaryDirectory.h"
#include "Tolvera/AppState.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;

// Real time, but every wait divided by `speed`: the goodbyes of 200 runs would take 17 minutes.
class HurriedClock final : public Clock {
 public:
  explicit HurriedClock(Executor executor) : clock_(std::move(executor)) {}
  [[nodiscard]] WallTime now() const override { return clock_.now(); }
  Task<void> sleep(Duration duration) override { return clock_.sleep(duration / speed.load()); }

  std::atomic<int> speed = 100;

 private:
  SystemClock clock_;
};

class NoCaptionWindow final : public CaptionWindowController {
 public:
  void show(AppState&) override {}
  CaptionPanel* panel() override { return nullptr; }
};
class NoOnboarding final : public OnboardingWindowController {
 public:
  void show(AppState&) override {}
};

std::size_t entries(const char* directory) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

// A model on the real network and the real sound server, its main thread stepped by the test.
class RealRun : public testing::Test {
 protected:
  RealRun() {
    graph_.createSource("microphone");
    graph_.setDefaultSource("microphone");
    in_.userDefaults.setObject("seenOnboarding", true);
    in_.userDefaults.setObject("captureMode", "mic");
    in_.userDefaults.setObject("uiLanguage", "english");
    in_.userDefaults.setObject("target", "es");
    backgroundThread_ = std::thread([this] { background_.run(); });
  }

  ~RealRun() override {
    if (model_) run(model_->stop());
    model_.reset();
    in_.loop.settle();
    background_.stop();
    backgroundThread_.join();
  }

  AppState& launch(const std::string& serverURL) {
    in_.userDefaults.setObject("serverURL", serverURL);
    model_ =
        AppState::make(platform_, {std::make_unique<NoCaptionWindow>(), std::make_unique<NoOnboarding>()});
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

  test::PrivateGraph graph_; // first: it must come before any thread
  test::InMemoryPlatform in_;
  boost::asio::io_context background_{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard_{background_.get_executor()};
  HurriedClock clock_{background_.get_executor()};
  adapters::BeastURLSession network_{background_.get_executor()};
  adapters::PipeWireAudioSystem audio_;
  platform::Platform platform_ = [this] {
    return platform::Platform{
        in_.loop.executor(), background_.get_executor(), clock_,          network_,   audio_,
        in_.captureDevice,   in_.userDefaults,           in_.fileManager, in_.locale, in_.workspace};
  }();
  std::shared_ptr<AppState> model_;
  std::thread backgroundThread_;
};

void serve(LoopbackServer& server) {
  server.onRequest([](const LoopbackServer::Request& request) {
    return LoopbackServer::Reply::http(
        200, request.target.ends_with("/api/signup")
                 ? R"({"token":"t","secondsLeft":3600})"
                 : R"({"secondsLeft":3600,"secondsUsed":0,"dubMultiplier":4,"voices":[],"paymentMethods":[],)"
                   R"("loginMethods":[],"signedIn":false,"packs":[]})");
  });
  server.onOpen([](LoopbackServer::Connection& connection) {
    connection.sendText(R"({"type":"ready","secondsLeft":3600})");
  });
}

TEST_F(RealRun, TwoHundredRunsLeakNoThreadDescriptorOrObjectOfTheSoundServer) {
  LoopbackServer server;
  serve(server);
  auto& model = launch(server.url("http", "/livetranslate"));
  const auto once = [&] {
    run(model.start());
    ASSERT_TRUE(reaches(Phase::Kind::live));
    run(model.stop());
    ASSERT_TRUE(model.phase().is(Phase::Kind::idle));
  };
  const auto settled = [&] { return server.liveCount() == 0; };
  for (int i = 0; i < 5; ++i) once(); // what is made once is made now
  ASSERT_TRUE(in_.loop.settleUntil(settled, 10s));
  const auto threads = entries("/proc/self/task");
  const auto descriptors = entries("/proc/self/fd");
  const auto objects = graph_.objects();

  for (int i = 0; i < 200; ++i) once();
  ASSERT_TRUE(in_.loop.settleUntil(settled, 10s));
  EXPECT_TRUE(test::eventually([&] { return entries("/proc/self/task") <= threads; }));
  EXPECT_TRUE(test::eventually([&] { return entries("/proc/self/fd") <= descriptors; }))
      << entries("/proc/self/fd") << " descriptors, " << descriptors << " before";
  EXPECT_TRUE(test::eventually([&] { return graph_.objects() == objects; }));
}

TEST_F(RealRun, AnUpgradeAnsweredWithAnErrorIsTriedAgainUntilTheServiceIsBack) {
  LoopbackServer server;
  serve(server);
  for (const int status : {404, 500}) {
    server.onUpgrade(
        [status](const LoopbackServer::Request&) { return LoopbackServer::Reply::http(status); });
    auto& model = launch(server.url("http", "/livetranslate"));
    run(model.start());
    ASSERT_TRUE(reaches(Phase::Kind::reconnecting)) << status;
    server.onUpgrade([](const LoopbackServer::Request&) { return LoopbackServer::Reply::upgrade(); });
    ASSERT_TRUE(reaches(Phase::Kind::live)) << status;
    run(model.stop());
  }
}

TEST_F(RealRun, TheServiceKilledInMidRunAndStartedAgainIsFoundAgain) {
  const test::TemporaryDirectory directory;
  const auto log = (directory.path() / "log").string();
  const auto startService = [&](const std::string& port) {
    std::filesystem::remove(log);
    test::ChildProcess service({TOLVERA_SERVICE, "--port", port, "--state", directory.path() / "state"}, log);
    std::string line;
    const auto listening = [&] {
      std::ifstream file(log);
      while (std::getline(file, line)) {
        if (line.find("listening on") != std::string::npos) return true;
      }
      return false;
    };
    EXPECT_TRUE(test::eventually(listening, 60s));
    return std::pair(std::move(service), line.substr(line.rfind(':') + 1));
  };

  clock_.speed = 1; // the true backoff has to outlast a true start of the service
  auto [service, port] = startService("0");
  auto& model = launch("http://127.0.0.1:" + port + "/livetranslate");
  run(model.start());
  ASSERT_TRUE(reaches(Phase::Kind::live)) << model.phase().message().toStdString();
  service.kill();
  ASSERT_TRUE(reaches(Phase::Kind::reconnecting));

  auto [again, samePort] = startService(port);
  ASSERT_EQ(samePort, port);
  ASSERT_TRUE(reaches(Phase::Kind::live)) << model.phase().message().toStdString();
  run(model.stop());
  ASSERT_TRUE(model.me());
  EXPECT_GT(model.secondsLeft(), 3500) << "the account has outlived the service";
}

} // namespace
} // namespace tolvera
