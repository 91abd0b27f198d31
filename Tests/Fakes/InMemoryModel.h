#pragma once

#include "Fakes/InMemoryPlatform.h"
#include "Tolvera/Model/AppState.h"

#include <boost/json/serialize.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace tolvera::test {

// The service's reply about an account; it offers three packs.
inline std::string accountReply(double secondsLeft, bool signedIn = false) {
  return R"({"secondsLeft":)" + std::to_string(secondsLeft) + R"(,"signedIn":)" +
         (signedIn ? "true" : "false") +
         R"(,"secondsUsed":0,"dubMultiplier":4,"voices":[],"paymentMethods":[],"loginMethods":[],"packs":[
             {"id":"small","hours":1.5,"cents":199,"fen":1999},
             {"id":"medium","hours":10,"cents":1299,"fen":8800},
             {"id":"large","hours":100,"cents":9900,"fen":68800}]})";
}

// A model on the in-memory platform, brought into any state by the service's replies and frames. It is
// English, in microphone mode and past the onboarding; its service signs up and has an hour left. One thread.
class InMemoryModel {
 public:
  InMemoryModel() {
    in_.userDefaults.values = {
        {"seenOnboarding", true}, {"uiLanguage", "english"}, {"captureMode", "mic"}, {"target", "es"}};
    in_.network.reply("/api/signup", 200, R"({"token":"secret-token","secondsLeft":3600})");
    in_.network.reply("/api/me", 200, accountReply(3600));
    make();
  }
  ~InMemoryModel() {
    // A task that still waits holds its model, which must not outlive the platform.
    in_.loop.run(app_->stop());
    in_.loop.advance(std::chrono::hours(2));
  }
  // Makes the model anew, with the preferences as they are now. It asks the service for nothing yet.
  void make() {
    app_ = AppState::make(
        in_.platform, {std::make_unique<CaptionWindow>(windows_), std::make_unique<Onboarding>(windows_)});
    settle();
  }

  AppState& app() { return *app_; }
  AppSettings& settings() { return *app_->settings(); }
  InMemoryPlatform& in() { return in_; }

  // What the service says of the account from now on; the model reads it at once.
  void account(double secondsLeft, bool signedIn = false) {
    in_.network.reply("/api/me", 200, accountReply(secondsLeft, signedIn));
    in_.loop.run(app_->refreshAccount());
  }
  // The token is forgotten, and the next one takes an hour.
  void loseToken() {
    in_.network.reply("/api/me", 401, R"({"error":"unknown"})");
    in_.loop.run(app_->refreshAccount());
    in_.network.answers["/api/signup"] = [this]() -> Task<platform::HTTPResponse> {
      co_await in_.loop.clock().sleep(std::chrono::hours(1));
      co_return platform::HTTPResponse{.status = 500, .body = {}};
    };
  }
  // An application that can be captured, listed at the next refresh.
  void addApp(const std::string& bundleID, const std::string& name, bool playing = false) {
    const auto pid = static_cast<std::int32_t>(101 + in_.runningApplications.running.size());
    in_.runningApplications.addRegular(pid, bundleID, name);
    in_.audioHardware.addProcess(pid, bundleID, playing);
  }
  // The default output from now on.
  void playThroughSpeaker(bool speaker) {
    in_.audioHardware.addOutput(speaker ? platform::transports::builtIn : 0U);
    app_->refreshApps();
  }

  // A run, stage by stage; each call goes through the stages before it.
  void starting() { // waits for its token
    in_.loop.run(app_->refreshAccount());
    loseToken();
    app_->beginStart();
    settle();
  }
  void connecting() {
    if (!app_->me()) in_.loop.run(app_->refreshAccount());
    app_->beginStart();
    settle();
  }
  void live() {
    connecting();
    ready(app_->secondsLeft());
  }
  void reconnecting() {
    live();
    say({{"type", "status"}, {"state", "reconnecting"}});
  }
  void fail(const std::string& message, const std::string& code = "upstream") { // in a run, as the service
    say({{"type", "error"}, {"code", code}, {"message", message}});
  }
  void beSilent() { // the sound that is captured, until the watchdog says so
    in_.loop.advance(std::chrono::seconds(1));
    in_.audioHardware.deliver(std::vector<float>(9600, 0));
    in_.loop.advance(std::chrono::seconds(14));
  }
  // What the service says in a run.
  void source(const std::string& text) { say({{"type", "src"}, {"text", text}}); }
  void translation(const std::string& text, const std::string& stash = "") {
    say({{"type", "tr"}, {"text", text}, {"stash", stash}});
  }
  void finish(const std::string& text) { say({{"type", "tr"}, {"text", text}, {"final", true}}); }
  void balance(double seconds) { say({{"type", "balance"}, {"secondsLeft", seconds}}); }
  void ready(double seconds) { say({{"type", "ready"}, {"secondsLeft", seconds}}); }
  void say(const boost::json::value& frame) {
    in_.network.connection()->deliver(boost::json::serialize(frame));
    settle();
  }

  // Lets everything that is ready happen.
  void settle() { in_.loop.settle(); }

 protected:
  struct CaptionWindow final : CaptionWindowController, CaptionPanel {
    explicit CaptionWindow(std::string& log) : asked(log) {}
    void show(AppState&) override { asked += "captions "; }
    CaptionPanel* panel() override { return this; }
    void savePosition() override { asked += "saved "; }
    void orderOut() override { asked += "out "; }
    std::string& asked;
  };
  struct Onboarding final : OnboardingWindowController {
    explicit Onboarding(std::string& log) : asked(log) {}
    void show(AppState&) override { asked += "greeting "; }
    std::string& asked;
  };

  InMemoryPlatform in_;
  std::string windows_; // what was asked of them, in order
  std::shared_ptr<AppState> app_;
};

} // namespace tolvera::test
