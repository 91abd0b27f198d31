#include "TolveraCore/AudioProcesses.h"

#include "Fakes/InMemoryAudioHardware.h"
#include "Fakes/InMemoryRunningApplications.h"
#include "Platform/Linux/Desktop/IcuLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera {

namespace {

using platform::fourCharacterCode;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AudioProcessList : public ::testing::Test {
 protected:
  [[nodiscard]] std::vector<AudioProcessInfo> list() const {
    return AudioProcesses::list(hardware, applications);
  }
  [[nodiscard]] std::vector<AudioApp> userApps() const {
    return AudioProcesses::userApps(hardware, applications, locale);
  }
  [[nodiscard]] std::vector<std::string> userAppNames() const {
    std::vector<std::string> names;
    for (const AudioApp& app : userApps()) names.push_back(app.name);
    return names;
  }
  test::InMemoryAudioHardware hardware;
  test::InMemoryRunningApplications applications;
  adapters::IcuLocale locale{"en_US"};
};

TEST_F(AudioProcessList, ListsProcessesInOrderOfServer) {
  const auto first = hardware.addProcess(20, "org.player", true);
  const auto second = hardware.addProcess(10);
  const auto third = hardware.addProcess(30, "");
  hardware.addProcess(0);
  hardware.addProcess(-7);
  hardware.setProperty(hardware.addProcess(5), fourCharacterCode("ppid"), std::nullopt);
  EXPECT_THAT(list(), ElementsAre(AudioProcessInfo{first, 20, "org.player", "org.player", true},
                                  AudioProcessInfo{second, 10, std::nullopt, "pid 10", false},
                                  AudioProcessInfo{third, 30, "", "", false}));

  hardware.readFailures = {{fourCharacterCode("pbid"), -1}, {fourCharacterCode("piro"), -1}};
  EXPECT_EQ(list().front(), (AudioProcessInfo{first, 20, std::nullopt, "pid 20", false}));
  hardware.readFailures = {{fourCharacterCode("prs#"), -1}};
  EXPECT_THAT(list(), IsEmpty());
  EXPECT_THAT(userApps(), IsEmpty());
}

TEST_F(AudioProcessList, NamesProcessByFirstNameFound) {
  hardware.addProcess(123, "org.player");
  applications.addRegular(123, "org.other", "Running Player");
  EXPECT_EQ(list().front().name, "Running Player");
  applications.bundleNames["org.player"] = "Player";
  EXPECT_EQ(list().front().name, "Player");
  applications.displayNames["org.player"] = "Le Player";
  EXPECT_EQ(list().front().name, "Le Player");
}

TEST_F(AudioProcessList, PrefersRunningApplicationToBundle) {
  applications.addRegular(10, "org.browser", "Browser");
  applications.addRegular(11, "org.player", "Player");
  const auto object = hardware.addProcess(10, "org.player.helper");
  const auto bare = hardware.addProcess(11);
  EXPECT_THAT(userApps(), ElementsAre(AudioApp{"org.browser", "Browser", false, {object}},
                                      AudioApp{"org.player", "Player", false, {bare}}));
}

TEST_F(AudioProcessList, GivesHelperToLongestIdentifier) {
  applications.addRegular(10, "org.browser", "Browser");
  applications.addRegular(11, "org.browser.beta", "Beta");
  const auto plain = hardware.addProcess(100, "org.browser.helper.renderer", true);
  const auto beta = hardware.addProcess(101, "org.browser.beta.helper");
  const auto exact = hardware.addProcess(102, "org.browser.beta");
  const auto second = hardware.addProcess(107, "org.browser.helper"); // one that plays is enough
  hardware.addProcess(103, "org.browserhelper");                      // no point after the identifier
  hardware.addProcess(104, "org");
  hardware.addProcess(105, "org.absent.helper");
  hardware.addProcess(106);
  EXPECT_THAT(userApps(), ElementsAre(AudioApp{"org.browser", "Browser", true, {plain, second}},
                                      AudioApp{"org.browser.beta", "Beta", false, {beta, exact}}));
}

TEST_F(AudioProcessList, IgnoresApplicationsThatAreNotRegular) {
  for (const auto policy : {platform::ActivationPolicy::accessory, platform::ActivationPolicy::prohibited}) {
    applications.running.push_back({10, policy, "org.agent", "Agent"});
  }
  applications.running.push_back({11, platform::ActivationPolicy::regular, std::nullopt, "Nameless"});
  hardware.addProcess(10, "org.agent");
  hardware.addProcess(11, "org.agent.helper");
  EXPECT_THAT(userApps(), IsEmpty());
}

TEST_F(AudioProcessList, LeavesOutThisProgram) {
  applications.addRegular(hardware.ownPID, "org.self", "Self");
  hardware.addProcess(hardware.ownPID, "org.self", true);
  EXPECT_THAT(userApps(), IsEmpty());
  const auto other = hardware.addProcess(77, "org.self"); // another process of the same application
  EXPECT_THAT(userApps(), ElementsAre(AudioApp{"org.self", "Self", false, {other}}));
}

TEST_F(AudioProcessList, SortsPlayingFirstThenByName) {
  applications.addRegular(1, "b", "beta");
  applications.addRegular(2, "a", "Alpha");
  applications.addRegular(3, "z", "zulu");
  applications.addRegular(4, "c", "Charlie");
  applications.addRegular(5, "same", "ALPHA"); // equal to Alpha, and after it in the server's order
  for (const std::int32_t pid : {1, 2, 3, 4, 5}) hardware.addProcess(pid, std::nullopt, pid == 3);
  EXPECT_THAT(userAppNames(), ElementsAre("zulu", "Alpha", "ALPHA", "beta", "Charlie"));
}

TEST_F(AudioProcessList, NamesApplicationByLastOfIdentifier) {
  applications.addRegular(1, "org.nameless", std::nullopt);
  applications.addRegular(2, "org.empty", "");
  applications.addRegular(3, "org.player", "Earlier");
  applications.addRegular(4, "org.player", "Later");
  hardware.addProcess(1);
  hardware.addProcess(2);
  hardware.addProcess(50, "org.player.helper");
  EXPECT_THAT(userAppNames(), ElementsAre("Later", "org.nameless")) << "an empty name is left out";
}

} // namespace

} // namespace tolvera
