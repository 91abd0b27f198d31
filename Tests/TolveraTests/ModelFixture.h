#pragma once

#include "Fakes/InMemoryModel.h"
#include "Tolvera/Model/AppState.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tolvera::test {

// A model on a prepared in-memory platform, whose service answers and accepts.
class ModelFixture : public testing::Test {
 protected:
  ModelFixture();
  ~ModelFixture() override;

  // Makes the model with the preferences as they are now, and asks for its account.
  AppState& launch();
  // As `launch`, then a run that is live.
  AppState& launchLive();
  // Makes the model without asking for anything.
  AppState& make();

  void start() { in_.loop.run(model_->start()); }
  // Begins an operation without waiting for its end.
  TaskHandle begin(Task<void> operation);
  // What the service says on the present connection.
  void say(const std::string& frame);
  // Sound for the microphone, in seconds, at 16 kHz.
  void speak(double seconds, float level = 0.25F);

  [[nodiscard]] ScriptedConnection& connection() { return *in_.network.connection(); }
  [[nodiscard]] std::string phase() const { return model_->phase().description().toStdString(); }

  InMemoryPlatform in_;
  RecordedWindows windows_;
  std::shared_ptr<AppState> model_;
  std::vector<std::string> phases_; // every phase announced
};

} // namespace tolvera::test
