#include "Platform/PlatformError.h"
#include "PlatformTests/AudioGraphFixture.h"

#include <thread>

namespace tolvera::test {
namespace {

using platform::AudioObjectID;
using platform::fourCharacterCode;

using TapFault = AudioGraphTest;

constexpr const char* tapNode = "tolvera-tap";

ChildProcess ownTest(const std::string& name) {
  return ChildProcess({"/proc/self/exe", "--gtest_also_run_disabled_tests",
                       "--gtest_filter=TapFaultProcess.DISABLED_" + name});
}

TEST_F(TapFault, ServerThatDiesInterruptsTapDirectoryAndDub) {
  auto backend = tap(everything());
  backend.start(recording_.sink());
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  for (const double frequency : {500.0, 900.0}) {
    restartServer();
    const auto player = play(frequency);
    playing(player);
    ASSERT_TRUE(hears(frequency));
    dub.play(sine(1500, 0.4, 1));
    const auto ownObject = [this] {
      const auto own = AudioProcesses::object(hardware(), hardware().processIdentifier());
      return own && audioProperty<std::uint32_t>(hardware(), *own, fourCharacterCode("piro")) == 1U;
    };
    EXPECT_TRUE(eventually(ownObject));
  }
}

// The outputs of a desktop are the session manager's: they go with it, and the new one makes them again.
TEST_F(TapFault, SessionManagerThatDiesInterruptsTapDirectoryAndOutput) {
  auto backend = tap(everything());
  backend.start(recording_.sink());
  const auto before = play(500);
  playing(before);
  ASSERT_TRUE(hears(500));
  graph_.destroyNode("speaker");
  graph_.restartSessionManager();
  addSink("other");
  const auto output = [this] {
    const auto object =
        audioProperty<AudioObjectID>(hardware(), platform::systemAudioObject, fourCharacterCode("dOut"));
    return object && *object != platform::noAudioObject
               ? audioProperty<std::string>(hardware(), *object, fourCharacterCode("lnam"))
               : std::nullopt;
  };
  EXPECT_TRUE(eventually([&output] { return output() == "other"; }));
  const auto after = play(900);
  auto own = tap(processes({playing(after)}));
  Recording ownRecording;
  own.start(ownRecording.sink());
  EXPECT_TRUE(hears(900));
  EXPECT_TRUE(eventually([&ownRecording] { return ownRecording.hears(900, 0.2); }));
}

TEST_F(TapFault, NoServerIsAStatusAndAnEmptyDirectory) {
  graph_.killServer();
  EXPECT_TRUE(audioProperty<std::vector<AudioObjectID>>(hardware(), platform::systemAudioObject,
                                                        fourCharacterCode("prs#"))
                  ->empty());
  auto backend = tap(everything());
  try {
    backend.start(recording_.sink());
    ADD_FAILURE() << "started";
  } catch (const CoreAudioTapBackend::Failure& failure) {
    EXPECT_NE(failure.status(), 0);
  }
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
  EXPECT_EQ(hardware().createProcessTap(description).status, platform::noSuchObject);
  EXPECT_EQ(hardware().createAggregateDevice(aggregate).status, platform::noSuchObject);
  EXPECT_NE(hardware().createAggregateDevice({}).status, 0);
  EXPECT_EQ(hardware().createIOProc(none, [](auto) {}).status, platform::noSuchObject);
  EXPECT_EQ(hardware().startDevice(none, 1), platform::noSuchObject);
  EXPECT_EQ(hardware().property(none, {.selector = fourCharacterCode("tuid")}).status,
            platform::noSuchObject);
  EXPECT_EQ(hardware().property(platform::systemAudioObject, {.selector = fourCharacterCode("????")}).status,
            platform::noSuchProperty);
}

TEST_F(TapFault, EndsLeavingNothingInTheGraph) {
  const auto player = play(500);
  playing(player);
  const auto before = graph_.objects();
  auto backend = tap(everything());
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(500));
  EXPECT_TRUE(graph_.hasNode(tapNode));
  backend.stop();
  const std::size_t heard = recording_.samples().size();
  EXPECT_TRUE(eventually([this, &before] { return graph_.objects() == before; }));
  EXPECT_EQ(recording_.samples().size(), heard);
}

// Run by the next test, in a process of its own.
TEST(TapFaultProcess, DISABLED_TapsUntilItIsKilled) {
  adapters::PipeWireAudioSystem system;
  boost::asio::io_context context;
  const SystemClock clock(context.get_executor());
  Recording recording;
  CoreAudioTapBackend backend(system.audioHardware(), system, clock,
                              CoreAudioTapBackend::EverythingExceptSelf{});
  backend.start(recording.sink());
  DubPlayer dub(system.playback(), clock);
  dub.start();
  dub.play(std::vector<float>(24000 * 30));
  std::this_thread::sleep_for(std::chrono::seconds(30));
}

TEST_F(TapFault, KilledProcessLeavesNothingInTheGraph) {
  const auto player = play(500);
  playing(player);
  const auto before = graph_.objects();
  ChildProcess child(
      {"/proc/self/exe", "--gtest_also_run_disabled_tests", "--gtest_filter=TapFaultProcess.*"});
  ASSERT_TRUE(eventually([this] { return graph_.hasNode(tapNode) && graph_.hasNode("tolvera-dub"); }));
  ASSERT_TRUE(eventually([this, &before] { return graph_.objects()["Link"] >= before.at("Link") + 4; }));
  child.kill();
  EXPECT_TRUE(eventually([this, &before] { return graph_.objects() == before; }));
}

// Run by the next test: a program that has played, and keeps its stream.
TEST(TapFaultProcess, DISABLED_PlaysAndPauses) {
  adapters::PipeWireAudioSystem system;
  boost::asio::io_context context;
  const SystemClock clock(context.get_executor());
  DubPlayer player(system.playback(), clock);
  player.start();
  player.play(std::vector<float>(4800));
  std::this_thread::sleep_for(std::chrono::seconds(30));
}

TEST_F(TapFault, OutputSleepsWhileNobodyPlays) {
  auto backend = tap(everything());
  backend.start(recording_.sink());
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  dub.play(sine(1000, 0.4, 0.2));
  ChildProcess paused = ownTest("PlaysAndPauses");
  EXPECT_TRUE(eventually([this] { return recording_.seconds() > 0.1; }));
  const auto sleeping = [] {
    return outputOf({"sh", "-c", "pw-cli info speaker | grep -c 'state: \"suspended\"' || true"}) == "1\n";
  };
  EXPECT_TRUE(eventually(sleeping, std::chrono::seconds(15)));
  EXPECT_TRUE(paused.running());
  const auto player = play(700);
  EXPECT_TRUE(hears(700));
}

TEST_F(TapFault, IsStartedAndStoppedManyTimesWithoutALeak) {
  const auto player = play(500);
  const auto object = playing(player);
  const auto cycle = [this, object](int i) {
    recording_.clear();
    auto backend = tap(i % 2 == 0 ? everything() : processes({object}));
    DubPlayer dub(system_.playback(), clock_);
    backend.start(recording_.sink());
    dub.start();
    if (i % 3 == 0) dub.play(sine(1000, 0.1, 0.1));
    EXPECT_TRUE(i % 8 != 0 || eventually([this] { return !recording_.samples().empty(); }));
    dub.stop();
    backend.stop();
  };
  for (int i = 0; i < 3; ++i) cycle(i);
  ASSERT_TRUE(eventually([this] { return !graph_.hasNode(tapNode) && !graph_.hasNode("tolvera-dub"); }));
  const std::size_t threads = entries("/proc/self/task");
  const std::size_t descriptors = entries("/proc/self/fd");
  const auto objects = graph_.objects();
  for (int i = 0; i < 100; ++i) cycle(i);
  EXPECT_TRUE(eventually([threads] { return entries("/proc/self/task") == threads; }));
  EXPECT_TRUE(eventually([descriptors] { return entries("/proc/self/fd") <= descriptors; }))
      << entries("/proc/self/fd") << " descriptors, before " << descriptors;
  EXPECT_TRUE(eventually([this, &objects] { return graph_.objects() == objects; }));
}

} // namespace
} // namespace tolvera::test
