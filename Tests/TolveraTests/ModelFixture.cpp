#include "TolveraTests/ModelFixture.h"

#include <cmath>

namespace tolvera::test {

ModelFixture::ModelFixture() {
  in_.userDefaults.setObject("seenOnboarding", true);
  in_.userDefaults.setObject("uiLanguage", "english");
  in_.userDefaults.setObject("captureMode", "mic");
  in_.userDefaults.setObject("target", "es");
  in_.network.reply("/api/signup", 200, R"({"token":"secret token","secondsLeft":3600})");
  in_.network.reply("/api/me", 200, me(3600));
}

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
  auto handle = spawn(in_.loop.executor(), "operation", std::move(operation));
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

std::string ModelFixture::me(double secondsLeft, bool signedIn) {
  return R"({"secondsLeft":)" + std::to_string(secondsLeft) +
         R"(,"secondsUsed":0,"dubMultiplier":4,"voices":[],"paymentMethods":[],"loginMethods":[],"signedIn":)" +
         (signedIn ? "true" : "false") + R"(,"packs":[{"id":"p1","hours":1.5,"cents":199,"fen":1999}]})";
}

} // namespace tolvera::test
