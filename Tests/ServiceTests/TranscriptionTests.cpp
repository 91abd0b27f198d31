#include "TolveraService/Engine/ApertiumTranslator.h"
#include "TolveraService/Stream/Transcription.h"

#include "Harness/TemporaryDirectory.h"
#include "Harness/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace tolvera::service {
namespace {

// An engine whose listeners fail at the first sound.
struct BrokenEngine : SpeechEngine {
  struct Ears : Listener {
    explicit Ears(BrokenEngine& of) : engine(of) {}
    void begin(Request) override {}
    void hear(std::span<const std::int16_t>) override { throw std::runtime_error("broken"); }
    void finish() override {}
    void spoil() noexcept override { ++engine.spoiled; }
    BrokenEngine& engine;
  };
  [[nodiscard]] std::string name() const override { return "broken"; }
  [[nodiscard]] std::vector<std::string> languages() const override { return {"en"}; }
  [[nodiscard]] std::size_t runs() const override { return 1; }
  [[nodiscard]] std::size_t reportsToSettle() const override { return 1; }
  [[nodiscard]] std::unique_ptr<Listener> listener() override { return std::make_unique<Ears>(*this); }
  int spoiled = 0;
};

TEST(Transcription, BrokenEngineEndsRunInWords) {
  const test::TemporaryDirectory directory;
  AccountStore accounts(directory / "state");
  BrokenEngine engine;
  ApertiumTranslator translator(directory.path()); // no mode
  const Speech speech;
  Transcription::Job job;
  job.audio = std::make_shared<AudioQueue>();
  const auto output = job.output = std::make_shared<StreamOutput>();
  job.audio->push(std::string(6400, '\1'));
  Transcription(std::move(job), accounts, engine, translator, speech).run(engine.listener());
  test::TestLoop loop;
  const auto frame = loop.run(output->next());
  EXPECT_THAT(frame->payload,
              testing::AllOf(testing::HasSubstr("upstream_rejected"), testing::HasSubstr("failed")));
  EXPECT_EQ(engine.spoiled, 1) << "it is not made anew";
}

} // namespace
} // namespace tolvera::service
