#include "Fakes/InMemoryModel.h"

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

#include <chrono>

namespace tolvera::test {

namespace json = boost::json;

const std::string somePacks =
    R"([{"id":"small","hours":1.5,"cents":199,"fen":1999},{"id":"medium","hours":10,"cents":1299,"fen":8800},)"
    R"({"id":"large","hours":100,"cents":9900,"fen":68800}])";

std::string accountReply(double secondsLeft, bool signedIn, const std::string& packs) {
  return R"({"secondsLeft":)" + std::to_string(secondsLeft) +
         R"(,"secondsUsed":0,"dubMultiplier":4,"voices":[],"paymentMethods":[],"loginMethods":[],"signedIn":)" +
         (signedIn ? "true" : "false") + R"(,"packs":)" + packs + "}";
}

void prepare(InMemoryPlatform& in) {
  in.userDefaults.setObject("seenOnboarding", true);
  in.userDefaults.setObject("uiLanguage", "english");
  in.userDefaults.setObject("captureMode", "mic");
  in.userDefaults.setObject("target", "es");
  in.network.reply("/api/signup", 200, R"({"token":"secret token","secondsLeft":3600})");
  in.network.reply("/api/me", 200, accountReply(3600));
}

InMemoryModel::InMemoryModel() {
  prepare(in_);
  app_ = AppState::make(in_.platform, windows_.make());
  settle();
}

InMemoryModel::~InMemoryModel() {
  // Whatever still waits holds the model, which must not outlive the platform.
  in_.loop.run(app_->stop());
  in_.loop.advance(std::chrono::hours(2));
}

void InMemoryModel::account(double secondsLeft, bool signedIn, const std::string& packs) {
  in_.network.reply("/api/me", 200, accountReply(secondsLeft, signedIn, packs));
  in_.loop.run(app_->refreshAccount());
}

void InMemoryModel::addApp(const std::string& bundleID, const std::string& name, bool playing) {
  const auto pid = ++lastPID_;
  in_.runningApplications.addRegular(pid, bundleID, name);
  in_.audioHardware.addProcess(pid, bundleID, playing);
}

void InMemoryModel::playThroughSpeaker(bool speaker) {
  in_.audioHardware.addOutput(platform::fourCharacterCode(speaker ? "bltn" : "blue"), "Output");
  app_->refreshApps();
}

void InMemoryModel::begin() {
  app_->beginStart();
  settle();
}

void InMemoryModel::starting() {
  in_.loop.run(app_->refreshAccount());
  // A token that the service no longer knows is dropped, and the next one is long in coming.
  in_.network.reply("/api/me", 401, R"({"error":"unknown"})");
  in_.loop.run(app_->refreshAccount());
  in_.network.answer("/api/signup", [this](platform::HTTPRequest) -> Task<platform::HTTPResponse> {
    co_await in_.loop.clock().sleep(std::chrono::hours(1));
    co_return platform::HTTPResponse{.status = 500, .body = {}};
  });
  begin();
}

void InMemoryModel::connecting() {
  if (!app_->me()) in_.loop.run(app_->refreshAccount());
  begin();
}

void InMemoryModel::live() {
  connecting();
  say(R"({"type":"ready","secondsLeft":)" + std::to_string(app_->secondsLeft()) + "}");
}

void InMemoryModel::reconnecting() {
  live();
  say(R"({"type":"status","state":"reconnecting"})");
}

void InMemoryModel::fail(const std::string& message, const std::string& code) {
  say(json::serialize(json::value{{"type", "error"}, {"code", code}, {"message", message}}));
}

void InMemoryModel::source(const std::string& text) {
  say(json::serialize(json::value{{"type", "src"}, {"text", text}}));
}

void InMemoryModel::translation(const std::string& text, const std::string& stash) {
  say(json::serialize(json::value{{"type", "tr"}, {"text", text}, {"stash", stash}}));
}

void InMemoryModel::finish(const std::string& text) {
  say(json::serialize(json::value{{"type", "tr"}, {"text", text}, {"final", true}}));
}

void InMemoryModel::balance(double seconds) {
  say(json::serialize(json::value{{"type", "balance"}, {"secondsLeft", seconds}}));
}

void InMemoryModel::say(const std::string& frame) {
  in_.network.connection()->deliver(frame);
  settle();
}

} // namespace tolvera::test
