#pragma once

#include "Fakes/InMemoryPlatform.h"
#include "Fakes/RecordedWindows.h"
#include "Tolvera/Model/AppState.h"

#include <boost/json/value.hpp>

#include <memory>
#include <string>

namespace tolvera::test {

extern const std::string somePacks; // three, as the service lists them

// The service's reply about an account.
std::string accountReply(double secondsLeft, bool signedIn = false, const std::string& packs = somePacks);

// A model on the in-memory platform, brought into any state by the service's replies and frames. It is
// English, in microphone mode and past the onboarding; its service signs up and has an hour left. One thread.
class InMemoryModel {
 public:
  InMemoryModel();
  ~InMemoryModel();
  // Makes the model anew, with the preferences as they are now. It asks the service for nothing yet.
  AppState& make();

  AppState& app() { return *app_; }
  AppSettings& settings() { return *app_->settings(); }
  InMemoryPlatform& in() { return in_; }
  [[nodiscard]] const RecordedWindows& windows() const { return windows_; }

  // What the service says of the account from now on; the model reads it at once.
  void account(double secondsLeft, bool signedIn = false, const std::string& packs = somePacks);
  // The token is forgotten, and the next one takes an hour.
  void loseToken();
  // An application that can be captured, listed at the next refresh.
  void addApp(const std::string& bundleID, const std::string& name, bool playing = false);
  // The default output from now on.
  void playThroughSpeaker(bool speaker);

  // A run, stage by stage; each call goes through the stages before it.
  void starting(); // waits for its token
  void connecting();
  void live();
  void reconnecting();
  void fail(const std::string& message, const std::string& code = "upstream"); // in a run, as the service
  // What the service says in a run.
  void source(const std::string& text) { say({{"type", "src"}, {"text", text}}); }
  void translation(const std::string& text, const std::string& stash = "") {
    say({{"type", "tr"}, {"text", text}, {"stash", stash}});
  }
  void finish(const std::string& text) { say({{"type", "tr"}, {"text", text}, {"final", true}}); }
  void balance(double seconds) { say({{"type", "balance"}, {"secondsLeft", seconds}}); }
  void ready(double seconds) { say({{"type", "ready"}, {"secondsLeft", seconds}}); }
  void say(const boost::json::value& frame);

  // Lets everything that is ready happen.
  void settle() { in_.loop.settle(); }

 protected:
  InMemoryPlatform in_;
  RecordedWindows windows_;
  std::shared_ptr<AppState> app_;
};

} // namespace tolvera::test
