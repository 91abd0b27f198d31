#include "ServiceTests/RunningServer.h"
#include "ServiceTests/StreamClient.h"

#include <gtest/gtest.h>

#include <algorithm>

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

TEST_F(StreamTest, ASenderThatFallsSilentInMidSentenceGetsWhatThereIs) {
  auto client = openStream(signUp(), "es");
  ASSERT_TRUE(client);
  const auto speech = spoken("many people in this country do not have clean water");
  client->sendAudio(std::span(speech).first(speech.size() - 4000));
  EXPECT_TRUE(client->waitForType("tr", true));
}

TEST_F(StreamTest, AThirdStreamIsRefusedAndASecondOnAnAccountReplacesTheFirst) {
  const std::string token = signUp();
  auto other = openStream(signUp(), "ca");
  auto first = openStream(token, "es");
  ASSERT_TRUE(other && first);
  StreamClient third(port(), query(signUp(), "es"));
  const auto refusal = third.waitForType("error");
  ASSERT_TRUE(refusal);
  EXPECT_EQ(textOf(*refusal, "code"), "upstream_rejected");
  for (const char* part : {"正忙", "busy"})
    EXPECT_NE(textOf(*refusal, "message").find(part), std::string::npos) << part;
  EXPECT_TRUE(third.waitUntilClosed());
  sendSpeech(*first, "we need more time");
  EXPECT_TRUE(first->waitForType("tr", true));

  StreamClient second(port(), query(token, "es")); // takes over the decoder of the first
  ASSERT_TRUE(second.waitForType("ready"));
  const auto error = first->waitForType("error");
  ASSERT_TRUE(error);
  EXPECT_EQ(textOf(*error, "code"), "replaced");
  EXPECT_TRUE(first->waitUntilClosed());
  sendSpeech(second, "we need more time");
  EXPECT_TRUE(second.waitForType("tr", true));
}

TEST_F(StreamTest, WhatItCannotHearOrTranslateOrKnowIsRefusedInBothLanguages) {
  const std::string token = signUp();
  const std::pair<std::string, std::vector<const char*>> refusals[] = {
      {query(token, "ja"), {"日语", "Japanese", "西班牙语", "Spanish"}},
      {query(token, "es", "zh"), {"中文", "English only"}},
      {query(token, "%3Cb%3E"), {"这种语言", "this language"}},
      {query("nobody's", "es"), {"账户", "does not know this account"}},
      {"", {"账户", "does not know this account"}}};
  for (const auto& [parameters, parts] : refusals) {
    StreamClient client(port(), parameters);
    const auto error = client.waitForType("error");
    ASSERT_TRUE(error) << parameters;
    EXPECT_EQ(textOf(*error, "code"), "upstream_rejected");
    for (const char* part : parts) EXPECT_NE(textOf(*error, "message").find(part), std::string::npos) << part;
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
  EXPECT_TRUE(client->waitFor([](const auto& frame) { // the language that is heard comes back as heard
    return textOf(frame, "text") == "We need more time to finish this project.";
  }));

  client->sendBytes(std::string(300 * 1024, '\0'), true); // more than a frame may hold
  EXPECT_TRUE(client->waitUntilClosed());
}

TEST_F(StreamTest, MoreThanRealTimeIsHeardWhole) {
  auto client = openStream(signUp(), "en");
  ASSERT_TRUE(client);
  auto speech = spoken("we need more time to finish this project");
  speech.resize(speech.size() + 12000);
  constexpr std::size_t times = 12; // some 40 s of sound at once: four times what is queued
  for (std::size_t i = 0; i < times; ++i) client->sendAudio(speech);
  client->sendBytes(R"( { "type" : "stop", "more" : 1 } )", false);
  const double left = 3600 - static_cast<double>(times * speech.size()) / 16000;
  const auto allCharged = [left](const auto& frame) {
    return textOf(frame, "type") == "balance" &&
           frame.json.at("secondsLeft").template to_number<double>() < left + 0.01;
  };
  EXPECT_TRUE(client->waitFor(allCharged, std::chrono::seconds(60)));
  const auto frames = client->frames();
  const auto heard = std::count_if(frames.begin(), frames.end(), [](const auto& frame) {
    return textOf(frame, "type") == "tr" && frame.json.at("final").as_bool() &&
           textOf(frame, "text").find("project") != std::string::npos;
  });
  EXPECT_GE(heard, 10);
}

auto openDescriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

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
  const auto before = openDescriptors();
  for (int number = 0; number < 100; ++number) runOnce(number);
  for (int look = 0; look < 100 && openDescriptors() > before; ++look)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_LE(openDescriptors(), before);
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

} // namespace
} // namespace tolvera::test
