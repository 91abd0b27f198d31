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
    for (const auto& frame : client.frames()) {
      EXPECT_LE(frame.binary.size(), 9600U);
      EXPECT_EQ(frame.binary.size() % 2, 0U);
      bytes += frame.binary.size();
    }
    return bytes / 2;
  }
  [[nodiscard]] double secondsUsed() const {
    return HTTPClient(port())
        .get("/livetranslate/api/me", token_)
        .json()
        .at("secondsUsed")
        .to_number<double>();
  }
  // Speaks, stops, and gives what was spoken in seconds once all of it is paid for.
  static double speakAndStop(StreamClient& client, const std::string& words, double secondsOnAccount,
                             double multiplier) {
    const auto speech = spoken(words);
    client.sendAudio(speech);
    client.stop();
    const double seconds = static_cast<double>(speech.size()) / 16000;
    EXPECT_TRUE(client.waitFor([&](const auto& frame) {
      return textOf(frame, "type") == "balance" && frame.json.at("secondsLeft").template to_number<double>() <
                                                       secondsOnAccount - seconds * multiplier + 0.01;
    }));
    return seconds;
  }

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

TEST_F(DubTest, AStopSilencesTheRunAndLeavesItsCaptions) {
  auto client = open("en", "dub=1");
  ASSERT_TRUE(client);
  const auto speech = spoken("many people in this country do not have clean water");
  sendSpeech(*client, "we need more time to finish this project and the train was late again");
  ASSERT_TRUE(client->waitFor(isSound));
  client->sendAudio(std::span(speech).first(speech.size() - 4000)); // still open when it stops
  client->stop();
  ASSERT_TRUE(client->waitFor([](const auto& frame) {
    return textOf(frame, "type") == "tr" && textOf(frame, "text").find("people") != std::string::npos &&
           frame.json.at("final").as_bool();
  }));
  const std::size_t before = samplesOf(*client);
  EXPECT_FALSE(client->waitUntilClosed(std::chrono::milliseconds(500)));
  EXPECT_EQ(samplesOf(*client), before);
  const std::size_t whole =
      service::Speech()
          .say("en", "", "We need more time to finish this project and the train was late again.")
          .size();
  EXPECT_LT(before, whole);
}

TEST_F(DubTest, SpeechCostsFourfoldAndNothingIsSaidOrChargedWithoutIt) {
  auto spokenRun = open("es", "dub=1");
  ASSERT_TRUE(spokenRun);
  double seconds = speakAndStop(*spokenRun, "we need more time", 3600, 4);
  EXPECT_NEAR(secondsUsed(), seconds * 4, 0.1);

  auto silent = open("es", "dub=0&voice=Tina");
  ASSERT_TRUE(silent);
  const double before = secondsUsed();
  seconds = speakAndStop(*silent, "we need more time", 3600 - before, 1);
  EXPECT_NEAR(secondsUsed() - before, seconds, 0.1);
  EXPECT_TRUE(silent->waitForType("tr", true));
  EXPECT_EQ(samplesOf(*silent), 0U);
}

TEST_F(DubTest, ATargetWithoutAVoiceHasCaptionsAtTheirOwnPrice) {
  auto client = open("gl", "dub=1");
  ASSERT_TRUE(client);
  const double seconds = speakAndStop(*client, "we need more time to finish this project", 3600, 1);
  EXPECT_TRUE(client->waitForType("tr", true));
  EXPECT_EQ(samplesOf(*client), 0U);
  EXPECT_NEAR(secondsUsed(), seconds, 0.1);
}

TEST_F(DubTest, TheAccountNamesTheVoices) {
  const auto account = HTTPClient(port()).get("/livetranslate/api/me", token_).json();
  EXPECT_EQ(account.at("voices"), (boost::json::array{"Tina", "Serena", "Jennifer", "Katerina", "Ethan",
                                                      "Raymond", "Harvey", "Aiden"}));
}

} // namespace
} // namespace tolvera::test
