#include "ServiceTests/RunningServer.h"
#include "ServiceTests/StreamClient.h"

#include <gtest/gtest.h>

#include <thread>

namespace tolvera::test {
namespace {

class DubTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<RunningServer>(); }
  static void TearDownTestSuite() { server_.reset(); }

  static std::uint16_t port() { return (*server_)->port(); }
  std::unique_ptr<StreamClient> open(const std::string& target, const std::string& dub) const {
    return openStream(port(), "token=" + token_ + "&target=" + target + "&source=en&src=1&" + dub);
  }
  static bool isSound(const StreamClient::Frame& frame) { return !frame.binary.empty(); }
  static std::size_t samplesOf(const StreamClient& client) {
    std::size_t bytes = 0;
    for (const auto& frame : client.frames()) bytes += frame.binary.size();
    return bytes / 2;
  }
  [[nodiscard]] boost::json::object me() const {
    return HTTPClient(port()).get("/livetranslate/api/me", token_).json();
  }
  [[nodiscard]] double secondsUsed() const { return me().at("secondsUsed").to_number<double>(); }

  const std::string token_ = HTTPClient(port()).signUp();
  static std::unique_ptr<RunningServer> server_;
};

std::unique_ptr<RunningServer> DubTest::server_;

TEST_F(DubTest, ATranslationIsSpokenInTheVoiceThatWasAskedFor) {
  auto client = open("es", "dub=1&voice=Harvey");
  ASSERT_TRUE(client);
  sendSpeech(*client, "the children are playing in the garden behind the house");
  const auto caption = client->waitForType("tr", true);
  ASSERT_TRUE(caption);
  // Harvey is the slowest. The same words are not always of the same length.
  const auto whole = service::Speech().say("es", "Harvey", textOf(*caption, "text"));
  const double expected = static_cast<double>(whole.size());
  EXPECT_GT(expected, 24000);
  double got = 0;
  EXPECT_TRUE(client->waitFor([&](const auto& frame) {
    got += static_cast<double>(frame.binary.size()) / 2;
    return got >= expected * 0.97;
  }));
  EXPECT_LT(static_cast<double>(samplesOf(*client)), expected * 1.03);
  bool captioned = false;
  for (const auto& frame : client->frames()) {
    if (textOf(frame, "type") == "tr" && frame.json.at("final").as_bool()) captioned = true;
    if (isSound(frame)) EXPECT_TRUE(captioned) << "sound before its caption";
  }
}

TEST_F(DubTest, AStopSilencesTheRunBringsTheSentenceStillOpenAndLeavesTheSocketToTheClient) {
  auto client = open("en", "dub=1");
  ASSERT_TRUE(client);
  const std::string first = "we need more time to finish this project and the train was late again";
  const auto speech = spoken("many people in this country do not have clean water");
  sendSpeech(*client, first);
  ASSERT_TRUE(client->waitFor(isSound));
  client->sendAudio(std::span(speech).first(speech.size() - 4000)); // no pause at the end
  client->stop();
  client->sendAudio(spoken("this comes too late")); // and is not heard
  ASSERT_TRUE(client->waitFor([](const auto& frame) {
    return textOf(frame, "type") == "tr" && textOf(frame, "text").find("people") != std::string::npos &&
           frame.json.at("final").as_bool();
  }));
  const std::size_t before = samplesOf(*client);
  EXPECT_FALSE(client->waitUntilClosed(std::chrono::milliseconds(500)));
  EXPECT_EQ(samplesOf(*client), before);
  EXPECT_LT(before, service::Speech().say("en", "", first).size());
  for (const auto& frame : client->frames())
    EXPECT_EQ(textOf(frame, "text").find("comes"), std::string::npos);
  client->close();
  EXPECT_TRUE(client->waitUntilClosed());
}

TEST_F(DubTest, SpeechCostsFourfoldAndNothingIsSaidOrChargedWithoutIt) {
  EXPECT_EQ(me().at("dubMultiplier").to_number<double>(), 4);
  EXPECT_EQ(me().at("voices"), (boost::json::array{"Tina", "Serena", "Jennifer", "Katerina", "Ethan",
                                                   "Raymond", "Harvey", "Aiden"}));
  const auto speech = spoken("we need more time to finish this project");
  const std::tuple<const char*, const char*, double> runs[] = {
      {"es", "dub=1", 4}, {"es", "dub=0&voice=Tina", 1}, {"gl", "dub=1", 1}}; // none speaks Galician
  for (const auto& [target, dub, multiplier] : runs) {
    const double before = secondsUsed();
    const double cost = multiplier * static_cast<double>(speech.size()) / 16000;
    auto client = open(target, dub);
    ASSERT_TRUE(client);
    client->sendAudio(speech);
    client->stop();
    EXPECT_TRUE(client->waitFor([&, &spent = cost](const auto& frame) {
      return textOf(frame, "type") == "balance" &&
             frame.json.at("secondsLeft").template to_number<double>() < 3600 - before - spent + 0.01;
    }));
    EXPECT_NEAR(secondsUsed() - before, cost, 0.1) << target << dub;
    EXPECT_TRUE(client->waitForType("tr", true));
    if (multiplier == 1) EXPECT_EQ(samplesOf(*client), 0U) << target << dub;
  }
}

} // namespace
} // namespace tolvera::test
