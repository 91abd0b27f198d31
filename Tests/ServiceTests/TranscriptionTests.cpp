#include "TolveraService/Engine/ApertiumTranslator.h"
#include "TolveraService/Stream/Transcription.h"

#include "Harness/TemporaryDirectory.h"
#include "Harness/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

namespace tolvera::service {
namespace {

using testing::AllOf;
using testing::HasSubstr;

// An engine that does with sound what a test wants.
struct FakeEngine : SpeechEngine {
  using Hearing = std::function<void(std::chrono::duration<double> sound)>;
  struct Ears : Listener {
    explicit Ears(FakeEngine& of) : engine(of) {}
    void begin(Request) override {}
    void hear(std::span<const std::int16_t> samples) override {
      engine.hearing(std::chrono::duration<double>(static_cast<double>(samples.size()) / sampleRate));
    }
    void finish() override {}
    void spoil() noexcept override { ++engine.spoiled; }
    FakeEngine& engine;
  };
  explicit FakeEngine(Hearing itsHearing) : hearing(std::move(itsHearing)) {}
  [[nodiscard]] std::string name() const override { return "fake"; }
  [[nodiscard]] std::vector<std::string> languages() const override { return {"en"}; }
  [[nodiscard]] std::size_t runs() const override { return 1; }
  [[nodiscard]] std::size_t reportsToSettle() const override { return 1; }
  [[nodiscard]] std::unique_ptr<Listener> listener() override { return std::make_unique<Ears>(*this); }
  const Hearing hearing;
  int spoiled = 0;
};

// The frames of a run that hears some seconds of silence.
std::vector<std::string> framesOf(FakeEngine& engine, test::TestLoop& loop, std::size_t seconds) {
  const test::TemporaryDirectory directory;
  AccountStore accounts(directory / "state");
  ApertiumTranslator translator(directory.path()); // no mode
  const Speech speech;
  Transcription::Job job;
  job.installation = accounts.find(accounts.signUp().token)->installation;
  job.audio = std::make_shared<AudioQueue>();
  job.audio->push(std::string(seconds * 2 * SpeechEngine::sampleRate, '\0'));
  job.audio->finish();
  job.engine = {std::shared_ptr<void>(), &engine}; // not owned
  const auto output = job.output = std::make_shared<StreamOutput>();
  Transcription(std::move(job), accounts, translator, speech, loop.clock()).run(engine.listener());
  std::vector<std::string> frames;
  while (output->waiting() > 0) frames.push_back(loop.run(output->next())->payload);
  return frames;
}

TEST(Transcription, BrokenEngineEndsRunInWords) {
  FakeEngine engine([](auto) { throw std::runtime_error("broken"); });
  test::TestLoop loop;
  EXPECT_THAT(framesOf(engine, loop, 1).front(), AllOf(HasSubstr("upstream_rejected"), HasSubstr("failed")));
  EXPECT_EQ(engine.spoiled, 1) << "it is not made anew";
}

TEST(Transcription, SlowHearingEndsInWords) {
  struct Case {
    double slowness;
    double sleep; // of the machine, beside the work
    std::size_t seconds;
    bool ends;
  };
  for (const auto& [slowness, sleep, seconds, ends] :
       {Case{0.95, 0, 45, false}, {1.1, 0, 45, true}, {1.1, 0, 24, false}, {0.95, 9, 45, false}}) {
    test::TestLoop loop;
    FakeEngine engine([&](auto sound) {
      auto& clock = loop.clock();
      clock.asleep += std::chrono::duration_cast<Duration>(sound * sleep);
      clock.moveTo(clock.now() + std::chrono::duration_cast<Duration>(sound * (slowness + sleep)));
    });
    const auto frames = framesOf(engine, loop, seconds);
    EXPECT_GE(frames.size(), ends ? 10U : seconds / 2) << "20 s are measured first";
    EXPECT_THAT(frames.back(), HasSubstr(ends ? "cannot keep up" : "balance")) << slowness << ", " << seconds;
  }
}

} // namespace
} // namespace tolvera::service
