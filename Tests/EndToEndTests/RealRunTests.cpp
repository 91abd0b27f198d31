#include "Async/SystemClock.h"
#include "Platform/Linux/BeastURLSession.h"
#include "Platform/Linux/PipeWireAudioSystem.h"
#include "ServiceTests/Browser.h"
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
    EXPECT_TRUE(in_.loop.drain());
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
    return platform::Platform{in_.loop.executor(),
                              background_.get_executor(),
                              clock_,
                              network_,
                              audio_,
                              in_.audioHardware,
                              in_.playback,
                              in_.captureDevice,
                              in_.userDefaults,
                              in_.fileManager,
                              in_.locale,
                              in_.workspace,
                              in_.runningApplications,
                              in_.notificationCenter};
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
  // The sound server's library loses an event descriptor now and then, when a stream ends while the server
  // is busy with it; a run that leaked would leave 200.
  EXPECT_TRUE(test::eventually([&] { return entries("/proc/self/fd") <= descriptors + 10; }))
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

// The local service as a process of its own, with a fresh account store.
class ServiceProcess {
 public:
  // Waits until it listens. Port "0" is any; the state survives a restart.
  void start(const std::string& onPort) {
    std::filesystem::remove(log_);
    process_.emplace(
        std::vector<std::string>{TOLVERA_SERVICE, "--port", onPort, "--state", directory_ / "state"}, log_);
    std::string line;
    const auto listening = [&] {
      std::ifstream file(log_);
      while (std::getline(file, line)) {
        if (line.find("listening on") != std::string::npos) return true;
      }
      return false;
    };
    ASSERT_TRUE(test::eventually(listening, 60s));
    port_ = line.substr(line.rfind(':') + 1);
  }
  void kill() { process_->kill(); }
  [[nodiscard]] const std::string& port() const { return port_; }
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + port_ + "/livetranslate"; }

 private:
  const test::TemporaryDirectory directory_;
  const std::string log_ = directory_ / "log";
  std::optional<test::ChildProcess> process_;
  std::string port_;
};

TEST_F(RealRun, TheServiceKilledInMidRunAndStartedAgainIsFoundAgain) {
  clock_.speed = 1; // the true backoff has to outlast a true start of the service
  ServiceProcess service;
  service.start("0");
  auto& model = launch(service.url());
  run(model.start());
  ASSERT_TRUE(reaches(Phase::Kind::live)) << model.phase().message().toStdString();
  service.kill();
  ASSERT_TRUE(reaches(Phase::Kind::reconnecting));
  service.start(service.port());
  ASSERT_TRUE(reaches(Phase::Kind::live)) << model.phase().message().toStdString();
  run(model.stop());
  ASSERT_TRUE(model.me());
  EXPECT_GT(model.secondsLeft(), 3500) << "the account has outlived the service";
}

TEST_F(RealRun, AFirstUseFromTheSignupToTheSignOut) {
  clock_.speed = 1;
  ServiceProcess service;
  service.start("0");
  const auto browser = test::Browser::start(1000);
  if (!browser) GTEST_SKIP() << "chromium-driver is not installed";

  auto& model = launch(service.url());
  EXPECT_EQ(model.secondsLeft(), 3600);
  EXPECT_FALSE(model.isSignedIn());

  const auto confirm = [&](const std::string& heading, TaskHandle watching) {
    ASSERT_TRUE(in_.loop.settleUntil([&] { return !in_.workspace.opened.empty(); }, 10s));
    browser->open(in_.workspace.opened.back());
    in_.workspace.opened.clear();
    ASSERT_TRUE(browser->waitForText("h1", heading));
    browser->click("button");
    ASSERT_TRUE(in_.loop.settleUntil([&] { return watching.finished(); }, 20s)) << heading;
  };
  confirm("Sign in to the local account", spawn(in_.loop.executor(), "sign in", model.signIn()));
  EXPECT_TRUE(model.isSignedIn());

  ASSERT_FALSE(model.me()->packs.empty());
  const auto pack = model.me()->packs.front();
  confirm("Add translation time", spawn(in_.loop.executor(), "top up", model.openTopUp(pack.id)));
  const double bought = 3600 * (1 + pack.hours);
  EXPECT_EQ(model.secondsLeft(), bought);

  const auto tone = graph_.play(graph_.tone(300, 0.2, 30), "microphone");
  run(model.start());
  ASSERT_TRUE(reaches(Phase::Kind::live)) << model.phase().message().toStdString();
  EXPECT_TRUE(in_.loop.settleUntil([&] { return model.secondsLeft() < bought - 2; }, 20s));
  run(model.stop());
  EXPECT_LT(model.secondsLeft(), bought - 2) << "as the service's own account tells";

  run(model.signOut());
  EXPECT_FALSE(model.isSignedIn());
  EXPECT_LT(model.secondsLeft(), bought - 3600) << "the bought hours stay with the account";
}

} // namespace
} // namespace tolvera
