#include "ServiceTests/RunningServer.h"
#include "ServiceTests/StreamClient.h"

#include <gtest/gtest.h>
#include <signal.h>

namespace tolvera::test {
namespace {

std::string query(const std::string& token, const std::string& target, const std::string& source = "en") {
  return "token=" + token + "&target=" + target + "&source=" + source + "&dub=0&src=1";
}

// One service for all tests here: its decoders take a second to make.
class StreamTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<RunningServer>(); }
  static void TearDownTestSuite() { server_.reset(); }

  static RunningServer& server() { return *server_; }
  static std::uint16_t port() { return server()->port(); }
  static std::string signUp() { return HTTPClient(port()).signUp(); }

  static std::unique_ptr<StreamClient> openStream(const std::string& token, const std::string& target) {
    return test::openStream(port(), query(token, target));
  }

  static std::unique_ptr<RunningServer> server_;
};

std::unique_ptr<RunningServer> StreamTest::server_;

TEST_F(StreamTest, ASpokenSentenceComesBackAsGrowingCaptionsInBothLanguages) {
  auto client = openStream(signUp(), "es");
  ASSERT_TRUE(client);
  sendSpeech(*client, "the children are playing in the garden behind the house");
  const auto source = client->waitForType("src", true);
  const auto translation = client->waitForType("tr", true);
  ASSERT_TRUE(source && translation);
  EXPECT_NE(textOf(*source, "text").find("children are playing in the garden"), std::string::npos);
  EXPECT_NE(textOf(*translation, "text").find("en el jardín"), std::string::npos);

  std::string settled;
  int partials = 0;
  for (const auto& frame : client->frames()) {
    if (textOf(frame, "type") != "tr" || frame.json.at("final").as_bool()) continue;
    ++partials;
    EXPECT_TRUE(textOf(frame, "text").starts_with(settled)) << "settled words were taken back";
    settled = textOf(frame, "text");
  }
  EXPECT_GT(partials, 3);
  EXPECT_FALSE(settled.empty());
  ASSERT_TRUE(client->waitForType("balance"));
}

TEST_F(StreamTest, TheLanguageThatIsHeardComesBackAsHeard) {
  auto client = openStream(signUp(), "en");
  ASSERT_TRUE(client);
  sendSpeech(*client, "we need more time to finish this project");
  const auto caption = client->waitForType("tr", true);
  ASSERT_TRUE(caption);
  EXPECT_EQ(textOf(*caption, "text"), "We need more time to finish this project.");
}

TEST_F(StreamTest, StopBringsTheSentenceThatIsStillOpenAndLeavesTheSocketToTheClient) {
  auto client = openStream(signUp(), "es");
  ASSERT_TRUE(client);
  const auto speech = spoken("many people in this country do not have clean water");
  client->sendAudio(std::span(speech).first(speech.size() - 4000)); // no pause at the end
  client->stop();
  EXPECT_TRUE(client->waitForType("tr", true));
  client->sendAudio(speech); // too late: not heard
  EXPECT_FALSE(client->waitUntilClosed(std::chrono::milliseconds(300)));
  client->close();
  EXPECT_TRUE(client->waitUntilClosed());
}

TEST_F(StreamTest, ASenderThatFallsSilentInMidSentenceGetsWhatThereIs) {
  auto client = openStream(signUp(), "es");
  ASSERT_TRUE(client);
  const auto speech = spoken("many people in this country do not have clean water");
  client->sendAudio(std::span(speech).first(speech.size() - 4000));
  EXPECT_TRUE(client->waitForType("tr", true));
}

TEST_F(StreamTest, AThirdStreamIsToldThatTheServiceIsBusy) {
  auto first = openStream(signUp(), "es");
  auto second = openStream(signUp(), "ca");
  ASSERT_TRUE(first && second);
  StreamClient third(port(), query(signUp(), "es"));
  const auto refusal = third.waitForType("error");
  ASSERT_TRUE(refusal);
  EXPECT_EQ(textOf(*refusal, "code"), "upstream_rejected");
  EXPECT_NE(textOf(*refusal, "message").find("正忙"), std::string::npos);
  EXPECT_NE(textOf(*refusal, "message").find("busy"), std::string::npos);
  EXPECT_TRUE(third.waitUntilClosed());

  sendSpeech(*first, "we need more time");
  sendSpeech(*second, "the train was late again");
  EXPECT_TRUE(first->waitForType("tr", true));
  EXPECT_TRUE(second->waitForType("tr", true));
}

TEST_F(StreamTest, ASecondRunOnAnAccountEndsTheFirst) {
  const std::string token = signUp();
  auto first = openStream(token, "es");
  auto second = openStream(token, "es");
  ASSERT_TRUE(first && second);
  const auto error = first->waitForType("error");
  ASSERT_TRUE(error);
  EXPECT_EQ(textOf(*error, "code"), "replaced");
  EXPECT_TRUE(first->waitUntilClosed());
  sendSpeech(*second, "we need more time");
  EXPECT_TRUE(second->waitForType("tr", true));
}

TEST_F(StreamTest, WhatItCannotHearOrTranslateOrKnowIsRefusedInWords) {
  const std::string token = signUp();
  const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
      {query(token, "ja"), "日语", "Spanish"},
      {query(token, "es", "zh"), "中文", "English only"},
      {query(token, "%3Cb%3E"), "这种语言", "this language"},
      {query("nobody's", "es"), "账户", "does not know this account"},
      {"", "账户", "does not know this account"}};
  for (const auto& [parameters, chinese, english] : cases) {
    StreamClient client(port(), parameters);
    const auto error = client.waitForType("error");
    ASSERT_TRUE(error) << parameters;
    EXPECT_EQ(textOf(*error, "code"), "upstream_rejected");
    EXPECT_NE(textOf(*error, "message").find(chinese), std::string::npos) << textOf(*error, "message");
    EXPECT_NE(textOf(*error, "message").find(english), std::string::npos);
    EXPECT_TRUE(client.waitUntilClosed());
  }
}

TEST_F(StreamTest, FramesWithoutSenseDoNoHarm) {
  auto client = openStream(signUp(), "en");
  ASSERT_TRUE(client);
  for (const char* text : {"", "{", "[1,2]", R"({"type":"start"})", "stop", R"({"type":["stop"]})"})
    client->sendBytes(text, false);
  client->sendBytes("", true);
  client->sendBytes("x", true);
  for (int i = 0; i < 50; ++i) client->sendBytes(std::string(3201, static_cast<char>(i)), true);
  client->sendBytes(std::string(9999, '\xff'), true);
  client->sendAudio(std::vector<std::int16_t>(32000));
  sendSpeech(*client, "we need more time to finish this project");
  EXPECT_TRUE(client->waitFor([](const auto& frame) {
    return textOf(frame, "text").find("more time to finish this project") != std::string::npos;
  }));

  client->sendBytes(std::string(300 * 1024, '\0'), true); // more than a frame may hold
  EXPECT_TRUE(client->waitUntilClosed());
}

TEST_F(StreamTest, MoreThanRealTimeIsHeardWhole) {
  auto client = openStream(signUp(), "en");
  ASSERT_TRUE(client);
  const auto speech = spoken("we need more time to finish this project");
  constexpr int times = 12; // some 40 s of sound at once: four times what is queued
  for (int i = 0; i < times; ++i) {
    client->sendAudio(speech);
    client->sendAudio(std::vector<std::int16_t>(12000));
  }
  client->stop();
  const double seconds = times * static_cast<double>(speech.size() + 12000) / 16000;
  EXPECT_TRUE(client->waitFor(
      [&](const auto& frame) {
        const auto* left = frame.json.if_contains("secondsLeft");
        return textOf(frame, "type") == "balance" &&
               left->template to_number<double>() < 3600 - seconds + 0.01;
      },
      std::chrono::seconds(60)));
  std::string heard;
  for (const auto& frame : client->frames())
    if (textOf(frame, "type") == "tr" && frame.json.at("final").as_bool()) heard += textOf(frame, "text");
  std::size_t count = 0;
  for (std::size_t at = heard.find("project"); at != std::string::npos; at = heard.find("project", at + 1))
    ++count;
  EXPECT_GE(count, 10U) << heard;
}

TEST_F(StreamTest, ARunSurvivesTheDeathOfATranslationEngine) {
  auto client = openStream(signUp(), "es");
  ASSERT_TRUE(client);
  sendSpeech(*client, "we need more time to finish this project");
  ASSERT_TRUE(client->waitForType("tr", true));
  const std::size_t before = client->frames().size();
  for (const pid_t process : server()->translator().processes("es")) ::kill(process, SIGKILL);
  sendSpeech(*client, "the children are playing in the garden");
  std::size_t looked = 0;
  EXPECT_TRUE(client->waitFor([&](const auto& frame) {
    return looked++ >= before && textOf(frame, "text").find("jardín.") != std::string::npos;
  }));
  for (const auto& frame : client->frames()) EXPECT_NE(textOf(frame, "type"), "error");
}

std::size_t openDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

TEST_F(StreamTest, AHundredRunsLeaveNoDescriptorBehind) {
  const std::string token = signUp();
  const auto runOnce = [&](int number) {
    auto client = openStream(token, "es");
    ASSERT_TRUE(client);
    client->sendAudio(std::vector<std::int16_t>(1600));
    if (number % 3 == 0) client->stop();
    if (number % 3 != 1) client->close(); // the others are dropped without a word
    if (number % 3 != 1) EXPECT_TRUE(client->waitUntilClosed());
  };
  runOnce(0); // starts the translation engines
  const std::size_t before = openDescriptors();
  for (int number = 0; number < 100; ++number) runOnce(number);
  std::size_t after = openDescriptors();
  for (int look = 0; look < 100 && after > before; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    after = openDescriptors();
  }
  EXPECT_LE(after, before);
}

TEST_F(StreamTest, ARunEndsWhenTheTimeIsUsedUp) {
  const std::string token = signUp();
  {
    service::AccountStore accounts(server().stateDirectory());
    accounts.charge(accounts.find(token)->installation, 3597.5);
  }
  auto client = openStream(token, "es");
  ASSERT_TRUE(client);
  sendSpeech(*client, "many people in this country do not have clean water");
  const auto error = client->waitForType("error");
  ASSERT_TRUE(error);
  EXPECT_EQ(textOf(*error, "code"), "quota_exhausted");
  EXPECT_TRUE(client->waitUntilClosed());
  EXPECT_TRUE(client->waitForType("tr", true)); // what was heard until then
  StreamClient again(port(), query(token, "es"));
  const auto first = again.waitFor([](const auto&) { return true; });
  ASSERT_TRUE(first);
  EXPECT_EQ(textOf(*first, "code"), "quota_exhausted");
}

TEST_F(StreamTest, TheAddressOfTheSocketIsOneAndItIsNotForOtherSites) {
  const HTTPClient client(port());
  const HTTPClient::Headers upgrade = {{"Upgrade", "websocket"},
                                       {"Sec-WebSocket-Version", "13"},
                                       {"Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ=="}};
  auto foreign = upgrade;
  foreign.emplace_back("Host", "attacker.example:" + std::to_string(port()));
  EXPECT_EQ(client.request("GET", "/livetranslate/ws", foreign).status, 421U);
  auto site = upgrade;
  site.emplace_back("Origin", "https://attacker.example");
  EXPECT_EQ(client.request("GET", "/livetranslate/ws", site).status, 421U);
  EXPECT_EQ(client.request("GET", "/livetranslate/ws", {}).status, 404U); // no upgrade
}

} // namespace
} // namespace tolvera::test
