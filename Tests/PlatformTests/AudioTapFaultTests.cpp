#include "PlatformTests/AudioGraphFixture.h"
#include "TolveraCore/AudioRoute.h"

#include <thread>

namespace tolvera::test {
namespace {

using TapFault = AudioGraphTest;

TEST_F(TapFault, ServerThatDiesInterruptsTapDirectoryAndDub) {
  auto backend = tapEverything();
  backend.start(recording_.sink());
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  for (const double frequency : {500.0, 900.0}) {
    restartServer();
    const auto player = play(frequency);
    playing(player);
    ASSERT_TRUE(hears(frequency));
    dub.play(sine(1500, 1));
    playing(hardware().processIdentifier());
  }
}

// The outputs of a desktop are the session manager's: they go with it, and the new one makes them again.
TEST_F(TapFault, SessionManagerThatDiesInterruptsTapDirectoryAndOutput) {
  auto backend = tapEverything();
  backend.start(recording_.sink());
  const auto before = play(500);
  ASSERT_TRUE(hears(500));
  graph_.destroyNode("speaker");
  graph_.restartSessionManager();
  addSink("other");
  EXPECT_TRUE(eventually([this] { return AudioRoute::outputName(hardware()) == "other"; }));
  const auto after = play(900);
  auto own = tap(after);
  Recording ownRecording;
  own.start(ownRecording.sink());
  EXPECT_TRUE(hears(900));
  EXPECT_TRUE(eventually([&ownRecording] { return ownRecording.hears(900, 0.2); }));
}

TEST_F(TapFault, NoServerIsAStatusAndAnEmptyDirectory) {
  graph_.killServer();
  const auto processes =
      audioProperty<std::vector<AudioObjectID>>(hardware(), systemAudioObject, fourCharacterCode("prs#"));
  EXPECT_TRUE(processes->empty());
  auto backend = tapEverything();
  EXPECT_THROW(backend.start(recording_.sink()), CoreAudioTapBackend::Failure);
  DubPlayer dub(system_.playback(), clock_);
  EXPECT_THROW(dub.start(), platform::PlatformError);
  graph_.startServer();
  addSink("speaker");
  backend.start(recording_.sink());
  dub.start();
  const auto player = play(600);
  EXPECT_TRUE(hears(600));
}

TEST_F(TapFault, ObjectsThatAreNotThereAreRefused) {
  constexpr AudioObjectID none = 4'000'000'000;
  platform::TapDescription description;
  description.processes = {none};
  platform::AggregateDescription aggregate;
  aggregate.taps.push_back({"none", true});
  const platform::OSStatus statuses[] = {
      hardware().createProcessTap(description).status,
      hardware().createAggregateDevice(aggregate).status,
      hardware().createIOProc(none, [](auto) {}).status,
      hardware().startDevice(none, 1),
      hardware().property(none, {.selector = fourCharacterCode("tuid")}).status,
  };
  for (const platform::OSStatus status : statuses) EXPECT_EQ(status, platform::noSuchObject);
  EXPECT_NE(hardware().createAggregateDevice({}).status, 0);
  EXPECT_EQ(hardware().property(systemAudioObject, {.selector = fourCharacterCode("????")}).status,
            platform::noSuchProperty);
}

// Run by the next tests, in a process of its own: it plays for a moment, and keeps its stream and its tap.
TEST(TapFaultProcess, DISABLED_TapsAndPausesUntilItIsKilled) {
  adapters::PipeWireAudioSystem system;
  boost::asio::io_context context;
  const SystemClock clock(context.get_executor());
  Recording recording;
  CoreAudioTapBackend backend(system.audioHardware(), system, clock,
                              CoreAudioTapBackend::EverythingExceptSelf{});
  backend.start(recording.sink());
  DubPlayer dub(system.playback(), clock);
  dub.start();
  dub.play(std::vector<float>(4800));
  std::this_thread::sleep_for(std::chrono::seconds(30));
}

ChildProcess otherTolvera() {
  return ChildProcess(
      {"/proc/self/exe", "--gtest_also_run_disabled_tests", "--gtest_filter=TapFaultProcess.*"});
}

TEST_F(TapFault, KilledProcessLeavesNothingInTheGraph) {
  const auto player = play(500);
  playing(player);
  const auto before = graph_.objects();
  ChildProcess child = otherTolvera();
  ASSERT_TRUE(eventually([this] { return graph_.hasNode("tolvera-tap") && graph_.hasNode("tolvera-dub"); }));
  ASSERT_TRUE(eventually([this, &before] { return graph_.objects()["Link"] >= before.at("Link") + 4; }));
  child.kill();
  EXPECT_TRUE(eventually([this, &before] { return graph_.objects() == before; }));
}

TEST_F(TapFault, OutputSleepsWhileNobodyPlays) {
  auto backend = tapEverything();
  backend.start(recording_.sink());
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  dub.play(sine(1000, 0.2));
  ChildProcess paused = otherTolvera();
  EXPECT_TRUE(eventually([this] { return recording_.seconds() > 0.1; }));
  const auto sleeping = [] {
    return outputOf({"pw-cli", "info", "speaker"}).find("state: \"suspended\"") != std::string::npos;
  };
  EXPECT_TRUE(eventually(sleeping, std::chrono::seconds(15)));
  EXPECT_TRUE(paused.running());
  const auto player = play(700);
  EXPECT_TRUE(hears(700));
}

TEST_F(TapFault, IsStartedAndStoppedManyTimesWithoutALeak) {
  const auto player = play(500);
  playing(player);
  expectNoLeak(100, [this, &player](int i) {
    recording_.clear();
    auto backend = i % 2 == 0 ? tapEverything() : tap(player);
    DubPlayer dub(system_.playback(), clock_);
    backend.start(recording_.sink());
    dub.start();
    if (i % 3 == 0) dub.play(sine(1000, 0.1));
    EXPECT_TRUE(i % 8 != 0 || eventually([this] { return !recording_.samples().empty(); }));
    dub.stop();
    backend.stop();
  });
}

} // namespace
} // namespace tolvera::test
