#include "EndToEndTests/RealRun.h"

#include "Harness/LoopbackServer.h"
#include "ServiceTests/Browser.h"

#include <filesystem>

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using test::LoopbackServer;
using test::RealRun;
using test::ServiceProcess;

std::size_t entries(const char* directory) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

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
