#include "Tolvera/Model/MachineCheck.h"

#include "Fakes/InMemoryModel.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

namespace tolvera::test {
namespace {

const platform::MachineFacts allWell{.soundServer = "PipeWire 1.4.2",
                                     .microphone = "Desk microphone",
                                     .desktop = "X11",
                                     .hasTrayHost = true,
                                     .hasSettingsPortal = true,
                                     .configuration = "/home/user/.config/tolvera",
                                     .configurationIsWritable = true};

// What is missing, and the one line that says so; the last case lacks nothing.
TEST(MachineCheck, NamesWhatIsMissing) {
  using Spoil = std::function<void(platform::MachineFacts&, InMemoryPlatform&)>;
  const std::tuple<Spoil, std::string, std::string> cases[] = {
      {[](auto& facts, auto&) { facts.soundServer.reset(); }, "sound server", "start PipeWire"},
      {[](auto& facts, auto&) { facts.microphone.reset(); }, "microphone", "plug one in"},
      {[](auto&, auto& in) { in.userDefaults.setObject("serverURL", "http://127.0.0.1:9/other"); }, "service",
       "start tolvera-service"},
      {[](auto& facts, auto&) { facts.configurationIsWritable = false; }, "configuration",
       "cannot be written"},
      {[](auto&, auto&) {}, "", ""}};
  for (const auto& [spoil, name, cure] : cases) {
    InMemoryModel model;
    auto& in = model.in();
    in.network.reply(
        "livetranslate/api/about", 200,
        R"({"name":"tolvera-service","version":"1","engine":"Whisper base","languages":["en","de"]})");
    auto facts = allWell;
    spoil(facts, in);
    std::string missing;
    for (const auto& thing : in.loop.run(checkMachine(in.platform, facts))) {
      if (!thing.works) missing += thing.name + ": " + thing.text;
      if (thing.name == "recognition") EXPECT_EQ(thing.text, "Whisper base, 2 languages");
    }
    EXPECT_TRUE(missing.starts_with(name) && missing.find(cure) != std::string::npos) << missing;
    if (name.empty()) EXPECT_EQ(missing, "");
  }
}

} // namespace
} // namespace tolvera::test
