#include "TolveraService/Stream/SoundPace.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera::test {
namespace {

using testing::HasSubstr;
using Frame = StreamClient::Frame;

// One service for all tests here: its decoders take a second to make. Each test has an account of its own.
class Stream : public testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<RunningServer>(2); }
  static void TearDownTestSuite() { server_.reset(); }

  static std::uint16_t port() { return (*server_)->port(); }
  static std::string query(const std::string& token, const std::string& target,
                           const std::string& more = "&dub=0") {
    return "token=" + token + "&target=" + target + "&source=en&src=1" + more;
  }
  // A run that is ready.
  std::unique_ptr<StreamClient> open(const std::string& target, const std::string& more = "&dub=0") {
    auto client = std::make_unique<StreamClient>(port(), query(token_, target, more));
    EXPECT_TRUE(client->waitForType("ready")) << "no run begins";
    return client;
  }
  // Expects that a run ends with an error. Gives the error's message.
  static std::string failure(StreamClient& client, const std::string& code) {
    const auto error = client.waitForType("error").value_or(Frame());
    EXPECT_EQ(error["code"], code);
    EXPECT_TRUE(client.waitUntilClosed());
    return error["message"];
  }
  static std::size_t samplesOf(const StreamClient& client) {
    std::size_t bytes = 0;
    for (const Frame& frame : client.frames()) bytes += frame.binary.size();
    return bytes / 2;
  }
  double secondsUsed() const {
    const auto me = HTTPClient(port()).get("/livetranslate/api/me", token_).json();
    return me.at("secondsUsed").to_number<double>();
  }
  // Waits until a run tells that at most this much time is left.
  static bool waitForBalance(StreamClient& client, double seconds) {
    const auto told = [&](const Frame& frame) {
      return frame["type"] == "balance" && frame.json.at("secondsLeft").to_number<double>() < seconds + 0.01;
    };
    return client.waitFor(told, std::chrono::seconds(60)).has_value();
  }

  const std::string token_ = HTTPClient(port()).signUp();
  static std::unique_ptr<RunningServer> server_;
};

std::unique_ptr<RunningServer> Stream::server_;

TEST_F(Stream, SentenceGrowsIntoCaptions) {
  auto client = open("es");
  client->say("the children are playing in the garden behind the house");
  EXPECT_THAT(client->waitForFinal("src").value()["text"], HasSubstr("children are playing in the garden"));
  EXPECT_THAT(client->waitForFinal("tr").value()["text"], HasSubstr("en el jardín"));
  std::string settled;
  int partials = 0;
  for (const Frame& frame : client->frames()) {
    if (frame["type"] != "tr" || frame.isFinal("tr")) continue;
    ++partials;
    EXPECT_TRUE(frame["text"].starts_with(settled)) << "settled words were taken back";
    settled = frame["text"];
  }
  EXPECT_GT(partials, 3);
  EXPECT_FALSE(settled.empty());

  // A sender that falls silent in the middle of a sentence gets what there is.
  const auto speech = spoken("many people in this country do not have clean water");
  const std::size_t before = client->frames().size();
  client->sendAudio(std::span(speech).first(speech.size() - 4000));
  EXPECT_TRUE(client->waitFor([&, seen = std::size_t{0}](const Frame& frame) mutable {
    return ++seen > before && frame.isFinal("tr");
  }));
}

TEST_F(Stream, RunBeyondTheDecodersIsRefused) {
  StreamClient second(port(), query(HTTPClient(port()).signUp(), "ca"));
  ASSERT_TRUE(second.waitForType("ready"));
  auto first = open("es");
  StreamClient third(port(), query(HTTPClient(port()).signUp(), "es"));
  EXPECT_THAT(failure(third, "upstream_rejected"), AllOf(HasSubstr("正忙"), HasSubstr("busy")));

  auto again = open("es"); // replaces the account's first run and takes its decoder over
  failure(*first, "replaced");
  again->say("we need more time");
  EXPECT_TRUE(again->waitForFinal("tr"));
  again.reset();                                        // without a goodbye
  for (int run = 0; run < 5; ++run) open("es")->stop(); // a lone user's next run finds a decoder
}

TEST_F(Stream, FreshRunIsReplacedByOneThatStays) {
  const auto balances = [](const StreamClient& client) {
    std::vector<double> told;
    for (const Frame& frame : client.frames())
      if (const auto* left = frame.json.if_contains("secondsLeft")) told.push_back(left->to_number<double>());
    return told;
  };
  auto first = open("es");
  open("es").reset(); // an older connection of the same client, which gives it up
  first->say("we need more time");
  EXPECT_TRUE(first->waitForFinal("tr"));

  auto second = open("es");
  failure(*first, "replaced");
  EXPECT_LE(balances(*second).front(), balances(*first).back() + 0.001) << "the last charge is not in it";
}

TEST(SilentRun, LendsItsDecoder) {
  RunningServer server(1, {"pocketsphinx"}, false, std::chrono::seconds(2));
  const auto run = [&] {
    const std::string token = HTTPClient(server->port()).signUp();
    return StreamClient(server->port(), "token=" + token + "&target=es&source=en&src=1&dub=0");
  };
  const auto hears = [](StreamClient& client, const char* sentence, const char* word) {
    client.say(sentence);
    const auto isIt = [&](const Frame& frame) {
      return frame.isFinal("src") && frame["text"].find(word) != std::string::npos;
    };
    return client.waitFor(isIt).has_value();
  };
  auto first = run();
  EXPECT_TRUE(run().waitForType("error")) << "it has not been silent for long";
  EXPECT_TRUE(hears(first, "we need more time", "time"));
  std::this_thread::sleep_for(std::chrono::milliseconds(2200));
  auto second = run();
  EXPECT_TRUE(hears(second, "we need more time", "time"));
  std::this_thread::sleep_for(std::chrono::milliseconds(2200));
  EXPECT_TRUE(hears(first, "the weather is very nice today", "weather")) << "it does not get it back";
}

TEST_F(Stream, RefusalsNameTheirReason) {
  const std::pair<std::string, std::vector<const char*>> refusals[] = {
      {query(token_, "ja"), {"日语", "Japanese", "西班牙语", "Spanish"}},
      {query(token_, "%3Cb%3E"), {"这种语言", "this language"}},
      {"token=" + token_ + "&target=es&source=zh", {"中文", "English only"}},
      {query("unknown", "es"), {"账户", "does not know this account"}},
      {"", {"账户", "does not know this account"}}};
  for (const auto& [parameters, parts] : refusals) {
    StreamClient client(port(), parameters);
    const std::string message = failure(client, "upstream_rejected");
    for (const char* part : parts) EXPECT_THAT(message, HasSubstr(part)) << parameters;
  }
}

TEST_F(Stream, MalformedFramesDoNoHarm) {
  auto client = open("en");
  for (const char* text : {"", "{", "[1,2]", R"({"type":"start"})", "stop", R"({"type":["stop"]})"})
    client->sendBytes(text, false);
  for (const std::string& bytes : {std::string(), std::string("x"), std::string(9999, '\xff')})
    client->sendBytes(bytes, true);
  for (int i = 0; i < 50; ++i) client->sendBytes(std::string(3201, static_cast<char>(i)), true);
  client->sendAudio(std::vector<std::int16_t>(32000));
  client->say("we need more time to finish this project");
  EXPECT_TRUE(client->waitFor([](const Frame& frame) { // English comes back as it was heard
    return frame["text"] == "We need more time to finish this project.";
  }));
  client->sendBytes(std::string(300 * 1024, '\0'), true); // more than a frame may hold
  EXPECT_TRUE(client->waitUntilClosed());
}

TEST_F(Stream, FastSoundIsHeardWhole) {
  auto client = open("en");
  auto speech = spoken("we need more time to finish this project");
  speech.resize(speech.size() + 12000);
  constexpr int times = 5; // some 16 s at once: more than is queued
  for (int i = 0; i < times; ++i) client->sendAudio(speech);
  client->sendBytes(R"( { "type" : "stop", "more" : 1 } )", false);
  EXPECT_TRUE(waitForBalance(*client, 3600 - times * static_cast<double>(speech.size()) / 16000));
  EXPECT_GE(std::ranges::count_if(client->frames(),
                                  [](const Frame& frame) {
                                    return frame.isFinal("tr") &&
                                           frame["text"].find("project") != std::string::npos;
                                  }),
            times - 1);
}

TEST_F(Stream, RunEndsWhenTimeIsUsedUp) {
  {
    service::AccountStore accounts(server_->stateDirectory());
    accounts.charge(accounts.find(token_)->installation, 3597.5);
  }
  auto client = open("es");
  client->say("many people in this country do not have clean water");
  failure(*client, "quota_exhausted");
  EXPECT_TRUE(client->waitForFinal("tr")) << "what was heard until then";
  StreamClient again(port(), query(token_, "es"));
  failure(again, "quota_exhausted");
  EXPECT_EQ(again.frames().size(), 1U) << "no run begins";
}

TEST_F(Stream, RunEndsWhenTheStoreFails) {
  auto client = open("en");
  service::Database holder(server_->stateDirectory() / "accounts.sqlite");
  holder.execute("BEGIN IMMEDIATE"); // a charge cannot be written, as on a full disk
  client->sendAudio(std::vector<std::int16_t>(32000));
  failure(*client, "upstream_rejected");
  holder.execute("ROLLBACK");
  open("en");
}

TEST(SoundPace, TakesTwiceRealTime) {
  service::SoundPace pace;
  EXPECT_LT(pace.pauseAfter(20 * 16000).count(), 100);
  EXPECT_NEAR(static_cast<double>(pace.pauseAfter(6 * 16000).count()), 3000, 100);
}

TEST_F(Stream, StopSilencesTheDub) {
  auto client = open("en", "&dub=1&voice=Harvey"); // the slowest
  const std::string first = "we need more time to finish this project";
  const auto whole = static_cast<double>(service::Speech().say("en", "Harvey", first).size());
  const auto waitForSound = [&](double share) {
    return client->waitFor(
        [&](const Frame&) { return static_cast<double>(samplesOf(*client)) > whole * share; });
  };
  client->say(first);
  ASSERT_TRUE(waitForSound(0.95));
  EXPECT_TRUE(client->waitFor([](const Frame& frame) { return frame.isFinal("tr") || !frame.binary.empty(); })
                  ->isFinal("tr"))
      << "sound before its caption";

  client->say("the train was late again because of the snow in the mountains");
  ASSERT_TRUE(waitForSound(1.1));
  const auto speech = spoken("many people in this country do not have clean water");
  client->sendAudio(std::span(speech).first(speech.size() - 4000)); // no pause at the end
  client->stop();
  client->sendAudio(spoken("this comes too late")); // and is not heard
  ASSERT_TRUE(client->waitFor([](const Frame& frame) {
    return frame.isFinal("tr") && frame["text"].find("people") != std::string::npos;
  })) << "the sentence that was still open";
  const std::size_t before = samplesOf(*client);
  EXPECT_FALSE(client->waitUntilClosed(std::chrono::milliseconds(500)));
  EXPECT_EQ(samplesOf(*client), before);
  EXPECT_LT(static_cast<double>(before), whole * 2);
  for (const Frame& frame : client->frames()) EXPECT_EQ(frame["text"].find("comes"), std::string::npos);
  client->close();
  EXPECT_TRUE(client->waitUntilClosed());
}

TEST_F(Stream, DubCostsFourfold) {
  const auto speech = spoken("we need more time to finish this project");
  const std::tuple<const char*, const char*, double> runs[] = {
      {"es", "&dub=1", 4}, {"es", "&dub=0&voice=Tina", 1}, {"gl", "&dub=1", 1}}; // no voice is Galician
  for (const auto& [target, dub, multiplier] : runs) {
    const double before = secondsUsed();
    auto client = open(target, dub);
    client->sendAudio(speech);
    client->stop();
    const double cost = multiplier * static_cast<double>(speech.size()) / 16000;
    EXPECT_TRUE(waitForBalance(*client, 3600 - before - cost));
    EXPECT_NEAR(secondsUsed() - before, cost, 0.1) << target << dub;
    EXPECT_TRUE(client->waitForFinal("tr"));
    if (multiplier == 1) EXPECT_EQ(samplesOf(*client), 0U) << target << dub;
  }
}

} // namespace
} // namespace tolvera::test
