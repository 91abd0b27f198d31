#include "TolveraCore/AudioProcesses.h"

#include "Fakes/InMemoryAudioHardware.h"
#include "Fakes/InMemoryDesktop.h"
#include "Platform/Linux/Desktop/IcuLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace selectors = platform::selectors;

class AudioProcessList : public ::testing::Test {
 protected:
  [[nodiscard]] std::vector<AudioProcessInfo> list() const {
    return AudioProcesses::list(hardware, applications);
  }
  [[nodiscard]] std::vector<AudioApp> userApps() const {
    return AudioProcesses::userApps(hardware, applications, locale);
  }

  test::InMemoryAudioHardware hardware;
  test::InMemoryRunningApplications applications;
  adapters::IcuLocale locale{"en_US"};
};

TEST_F(AudioProcessList, ListsProcessesInOrderOfServer) {
  const auto first = hardware.addProcess(20, "org.player", true);
  const auto second = hardware.addProcess(10);
  const auto third = hardware.addProcess(30, "");
  for (const std::optional<std::int32_t> none : {std::optional(0), std::optional(-7), std::optional<int>()})
    hardware.addProcess(none);
  EXPECT_THAT(list(), ElementsAre(AudioProcessInfo{first, 20, "org.player", "org.player", true},
                                  AudioProcessInfo{second, 10, std::nullopt, "pid 10", false},
                                  AudioProcessInfo{third, 30, "", "", false}));
  applications.addRegular(20, "org.other", "Running Player"); // names by the first that is found
  EXPECT_EQ(list().front().name, "Running Player");
  applications.bundleNames["org.player"] = "Player";
  EXPECT_EQ(list().front().name, "Player");
  applications.displayNames["org.player"] = "Le Player";
  EXPECT_EQ(list().front().name, "Le Player");

  hardware.readFailures = {{selectors::bundleID, -1}, {selectors::isRunningOutput, -1}};
  EXPECT_EQ(list().front(), (AudioProcessInfo{first, 20, std::nullopt, "Running Player", false}));
  hardware.readFailures = {{selectors::processObjectList, -1}};
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AudioProcessList, GivesHelperToLongestIdentifier) {
  applications.addRegular(10, "org.browser", "Browser");
  applications.addRegular(11, "org.browser.beta", "Beta");
  const auto plain = hardware.addProcess(100, "org.browser.helper.renderer", true);
  const auto beta = hardware.addProcess(101, "org.browser.beta.helper");
  const auto exact = hardware.addProcess(102, "org.browser.beta");
  const auto second = hardware.addProcess(107, "org.browser.helper"); // one that plays is enough
  const auto itself = hardware.addProcess(10, "org.browser.beta");    // the running application decides
  hardware.addProcess(103, "org.browserhelper");                      // no point after the identifier
  hardware.addProcess(104, "org");
  hardware.addProcess(105, "org.absent.helper");
  hardware.addProcess(106);
  EXPECT_THAT(userApps(), ElementsAre(AudioApp{"org.browser", "Browser", true, {plain, second, itself}},
                                      AudioApp{"org.browser.beta", "Beta", false, {beta, exact}}));
}

TEST_F(AudioProcessList, LeavesOutThisProgram) {
  applications.running = {{1, platform::ActivationPolicy::accessory, "org.agent", "Agent"},
                          {2, platform::ActivationPolicy::prohibited, "org.agent", "Agent"},
                          {3, platform::ActivationPolicy::regular, std::nullopt, "Nameless"}};
  applications.addRegular(hardware.ownPID, "org.self", "Self");
  hardware.addProcess(hardware.ownPID, "org.self", true);
  for (const int pid : {1, 2, 3}) hardware.addProcess(pid, "org.agent.helper");
  EXPECT_THAT(userApps(), IsEmpty());
  const auto other = hardware.addProcess(77, "org.self"); // another process of the same application
  EXPECT_THAT(userApps(), ElementsAre(AudioApp{"org.self", "Self", false, {other}}));
}

TEST_F(AudioProcessList, SortsPlayingFirstThenByName) {
  const std::tuple<int, const char*, std::optional<std::string>> running[] = {
      {1, "b", "beta"},
      {2, "a", "Alpha"},
      {3, "z", "zulu"},
      {4, "org.nameless", std::nullopt}, // named by its identifier
      {5, "same", "ALPHA"},              // equal to Alpha, and after it in the server's order
      {6, "org.empty", ""},              // left out
      {7, "org.player", "Earlier"},
      {7, "org.player", "Later"}};
  for (const auto& [pid, bundleID, name] : running) {
    applications.addRegular(pid, bundleID, name);
    if (pid != 7) hardware.addProcess(pid, bundleID, pid == 3);
  }
  hardware.addProcess(50, "org.player.helper");
  std::vector<std::string> names;
  for (const AudioApp& app : userApps()) names.push_back(app.name);
  EXPECT_THAT(names, ElementsAre("zulu", "Alpha", "ALPHA", "beta", "Later", "org.nameless"));
}

} // namespace

} // namespace tolvera
