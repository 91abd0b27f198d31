#pragma once

#include "Fakes/InMemoryPlatform.h"
#include "Fakes/RecordedWindows.h"
#include "Tolvera/Model/AppState.h"

#include <memory>
#include <string>

namespace tolvera::test {

extern const std::string somePacks; // three, as the service lists them

// The service's reply about an account.
std::string accountReply(double secondsLeft, bool signedIn = false, const std::string& packs = somePacks);

// English, microphone mode and past the onboarding, with a service that signs up and has an hour left.
void prepare(InMemoryPlatform& in);

// A model on the in-memory platform for views to show, brought into any state as in real life: by the
// service's replies and frames. Prepared as above. Nothing has been asked of the service before `launch`. One
// thread.
class InMemoryModel {
 public:
  InMemoryModel();
  ~InMemoryModel();

  AppState& app() { return *app_; }
  AppSettings& settings() { return *app_->settings(); }
  InMemoryPlatform& in() { return in_; }
  [[nodiscard]] const RecordedWindows& windows() const { return windows_; }

  // What the service says of the account from now on, and says at once.
  void account(double secondsLeft, bool signedIn = false, const std::string& packs = somePacks);

  // An application that can be captured, seen at the next look.
  void addApp(const std::string& bundleID, const std::string& name, bool playing = false);
  // The default output from now on.
  void playThroughSpeaker(bool speaker);

  // A run, stage by stage; each call goes through the stages before it.
  void starting(); // waits for a token that never comes
  void connecting();
  void live();
  void reconnecting();
  void fail(const std::string& message, const std::string& code = "upstream"); // in a run, as the service
  // Captions of a live run.
  void source(const std::string& text);
  void translation(const std::string& text, const std::string& stash = "");
  void finish(const std::string& text);
  void balance(double seconds);

  // Lets everything that is ready happen.
  void settle() { in_.loop.settle(); }

 private:
  void begin();
  void say(const std::string& frame);

  InMemoryPlatform in_;
  RecordedWindows windows_;
  std::int32_t lastPID_ = 100;
  std::shared_ptr<AppState> app_;
};

} // namespace tolvera::test
