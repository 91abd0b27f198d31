#include "EndToEndTests/RealRun.h"

#include "Harness/LoopbackServer.h"

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

TEST_F(RealRun, LeaksNothingInTwoHundredRuns) {
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
  for (int i = 0; i < 5; ++i) once(); // the first runs make what stays
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

TEST_F(RealRun, FindsAKilledServiceAgain) {
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
  EXPECT_GT(model.secondsLeft(), 3500) << "the account has outlived the service";
}

} // namespace
} // namespace tolvera
