#pragma once

#include "Fakes/InMemoryModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace tolvera::test {

using namespace std::chrono_literals;

// A model on the in-memory platform, whose service answers and accepts.
class ModelFixture : public testing::Test, protected InMemoryModel {
 protected:
  // Makes the model with the preferences as they are now, and reads its account.
  AppState& launch() {
    make();
    in_.loop.run(app_->bootstrap());
    return *app_;
  }
  void start() { in_.loop.run(app_->start()); }
  void stop() { in_.loop.run(app_->stop()); }
  // Begins an operation without waiting for its end.
  TaskHandle begin(Task<void> operation) {
    auto handle = spawn(in_.loop.executor(), "operation", app_, std::move(operation));
    settle();
    return handle;
  }
  // Sound for the microphone.
  void speak(double seconds, float level = 0.25F) {
    in_.audio.deliver(std::vector<float>(static_cast<std::size_t>(std::lround(seconds * 48'000)), level));
    settle();
  }

  [[nodiscard]] ScriptedConnection& connection() { return *in_.network.connection(); }
  [[nodiscard]] std::size_t framesSent() { return connection().sent.size(); }
  [[nodiscard]] std::string phase() const { return app_->phase().description().toStdString(); }
  // The source line, the translation with its tail, and the last finished translation.
  [[nodiscard]] std::string lines() const {
    return (app_->sourceLine() + "|" + app_->currentLine() + "[" + app_->currentStash() + "]|" +
            app_->previousLine())
        .toStdString();
  }
};

} // namespace tolvera::test
