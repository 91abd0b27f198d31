#include "EndToEndTests/RealRun.h"

#include "Fakes/Recording.h"
#include "Harness/LoopbackServer.h"

namespace tolvera {
namespace {

using test::entries;
using test::eventually;
using test::LoopbackServer;
using test::RealRun;

TEST_F(RealRun, LeaksNothingInTwoHundredRuns) {
  LoopbackServer server;
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
  in_.userDefaults.setObject("dub", true);
  launch(server.url("http", "/livetranslate"));
  const test::ChildProcess player({"pw-play", graph_.tone(440, 0.3, 300)});
  const auto runTimes = [&](int count) {
    for (int i = 0; i < count; ++i) {
      model_->settings()->setCaptureMode(i % 2 == 0 ? CaptureMode::microphone()
                                                    : CaptureMode::systemEverything());
      run(model_->start());
      ASSERT_TRUE(reaches(Phase::Kind::live));
      run(model_->stop());
      ASSERT_TRUE(model_->phase().is(Phase::Kind::idle)) << model_->phase().description().toStdString();
    }
    ASSERT_TRUE(in_.loop.settleUntil([&] { return server.liveCount() == 0; }));
  };
  runTimes(6); // the first runs make what stays
  const auto threads = entries("/proc/self/task");
  const auto descriptors = entries("/proc/self/fd");
  const auto objects = graph_.objects();
  runTimes(200);
  EXPECT_TRUE(eventually([&] { return entries("/proc/self/task") <= threads; }));
  EXPECT_TRUE(eventually([&] { return entries("/proc/self/fd") <= descriptors; }))
      << entries("/proc/self/fd") << " descriptors, " << descriptors << " before";
  EXPECT_TRUE(eventually([&] { return graph_.objects() == objects; }));
}

} // namespace
} // namespace tolvera
