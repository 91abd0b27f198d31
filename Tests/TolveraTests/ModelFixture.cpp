#include "TolveraTests/ModelFixture.h"

#include <cmath>

namespace tolvera::test {

ModelFixture::ModelFixture() { prepare(in_); }

ModelFixture::~ModelFixture() {
  if (model_) in_.loop.run(model_->stop());
  in_.loop.settle();
}

AppState& ModelFixture::make() {
  model_ = AppState::make(in_.platform, windows_.make());
  QObject::connect(model_.get(), &AppState::phaseChanged, [this] { phases_.push_back(phase()); });
  in_.loop.settle();
  return *model_;
}

AppState& ModelFixture::launch() {
  make();
  in_.loop.run(model_->bootstrap());
  return *model_;
}

AppState& ModelFixture::launchLive() {
  launch();
  start();
  say(R"({"type":"ready","secondsLeft":3000})");
  return *model_;
}

TaskHandle ModelFixture::begin(Task<void> operation) {
  auto handle = spawn(in_.loop.executor(), "operation", model_, std::move(operation));
  in_.loop.settle();
  return handle;
}

void ModelFixture::speak(double seconds, float level) {
  const auto frames = static_cast<std::size_t>(std::lround(seconds * in_.audio.inputFormat.sampleRate));
  in_.audio.deliver(std::vector<float>(frames, level));
  in_.loop.settle();
}

void ModelFixture::say(const std::string& frame) {
  connection().deliver(frame);
  in_.loop.settle();
}

} // namespace tolvera::test
