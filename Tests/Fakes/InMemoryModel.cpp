#include "Fakes/InMemoryModel.h"

#include <boost/json/serialize.hpp>

#include <chrono>

namespace tolvera::test {

const std::string somePacks =
    R"([{"id":"small","hours":1.5,"cents":199,"fen":1999},{"id":"medium","hours":10,"cents":1299,"fen":8800},)"
    R"({"id":"large","hours":100,"cents":9900,"fen":68800}])";

std::string accountReply(double secondsLeft, bool signedIn, const std::string& packs) {
  return R"({"secondsLeft":)" + std::to_string(secondsLeft) +
         R"(,"secondsUsed":0,"dubMultiplier":4,"voices":[],"paymentMethods":[],"loginMethods":[],"signedIn":)" +
         (signedIn ? "true" : "false") + R"(,"packs":)" + packs + "}";
}

InMemoryModel::InMemoryModel() {
  in_.userDefaults.values = {
      {"seenOnboarding", true}, {"uiLanguage", "english"}, {"captureMode", "mic"}, {"target", "es"}};
  in_.network.reply("/api/signup", 200, R"({"token":"secret token","secondsLeft":3600})");
  in_.network.reply("/api/me", 200, accountReply(3600));
  make();
}

InMemoryModel::~InMemoryModel() {
  // A task that still waits holds its model, which must not outlive the platform.
  in_.loop.run(app_->stop());
  in_.loop.advance(std::chrono::hours(2));
}

AppState& InMemoryModel::make() {
  app_ = AppState::make(in_.platform, windows_.make());
  settle();
  return *app_;
}

void InMemoryModel::account(double secondsLeft, bool signedIn, const std::string& packs) {
  in_.network.reply("/api/me", 200, accountReply(secondsLeft, signedIn, packs));
  in_.loop.run(app_->refreshAccount());
}

void InMemoryModel::loseToken() {
  in_.network.reply("/api/me", 401, R"({"error":"unknown"})");
  in_.loop.run(app_->refreshAccount());
  in_.network.answer("/api/signup", [this](platform::HTTPRequest) -> Task<platform::HTTPResponse> {
    co_await in_.loop.clock().sleep(std::chrono::hours(1));
    co_return platform::HTTPResponse{.status = 500, .body = {}};
  });
}

void InMemoryModel::addApp(const std::string& bundleID, const std::string& name, bool playing) {
  const auto pid = static_cast<std::int32_t>(101 + in_.runningApplications.running.size());
  in_.runningApplications.addRegular(pid, bundleID, name);
  in_.audioHardware.addProcess(pid, bundleID, playing);
}

void InMemoryModel::playThroughSpeaker(bool speaker) {
  in_.audioHardware.addOutput(platform::fourCharacterCode(speaker ? "bltn" : "blue"), "Output");
  app_->refreshApps();
}

void InMemoryModel::starting() {
  in_.loop.run(app_->refreshAccount());
  loseToken();
  app_->beginStart();
  settle();
}

void InMemoryModel::connecting() {
  if (!app_->me()) in_.loop.run(app_->refreshAccount());
  app_->beginStart();
  settle();
}

void InMemoryModel::live() {
  connecting();
  ready(app_->secondsLeft());
}

void InMemoryModel::reconnecting() {
  live();
  say({{"type", "status"}, {"state", "reconnecting"}});
}

void InMemoryModel::fail(const std::string& message, const std::string& code) {
  say({{"type", "error"}, {"code", code}, {"message", message}});
}

void InMemoryModel::say(const boost::json::value& frame) {
  in_.network.connection()->deliver(boost::json::serialize(frame));
  settle();
}

} // namespace tolvera::test
