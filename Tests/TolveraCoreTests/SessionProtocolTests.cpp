#include "TolveraCore/SessionProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera {
namespace {

using Session = TranslateSession;
using Event = Session::Event;
using Kind = Session::CaptionKind;

std::string address(std::string_view base, const Session::Config& config, std::string_view token = "t") {
  return std::string(SessionProtocol::socketURL(platform::URL(base), token, config).buffer());
}

const Session::Config plain{.target = "es", .source = "auto", .dub = false, .showSource = true, .voice = {}};
constexpr std::string_view plainQuery = "token=t&target=es&source=auto&dub=0&src=1";

TEST(SocketURL, TurnsTheSchemeAndAppendsThePathAsText) {
  const auto expected = [](std::string_view head) {
    return std::string(head) + "?" + std::string(plainQuery);
  };
  EXPECT_EQ(address("https://example.org/base", plain), expected("wss://example.org/base/ws"));
  EXPECT_EQ(address("http://[::1]:8080", plain), expected("ws://[::1]:8080/ws"));
  EXPECT_EQ(address("wss://example.org/base", plain), expected("wss://example.org/base/ws"));
  EXPECT_EQ(address("HTTP://example.org", plain), expected("HTTP://example.org/ws"));
  EXPECT_EQ(address("http://example.org/http/", plain), expected("ws://example.org/http//ws"));
}

TEST(SocketURL, HasTheVoiceLastAndOnlyIfThereIsOne) {
  auto config = plain;
  config.dub = true;
  config.showSource = false;
  config.voice = "";
  EXPECT_THAT(address("http://h", config), testing::EndsWith("&dub=1&src=0&voice="));
  config.voice = "warm";
  EXPECT_THAT(address("http://h", config), testing::EndsWith("&dub=1&src=0&voice=warm"));
}

TEST(SocketURL, CarriesAnyTextThroughTheQueryWhole) {
  const std::string awkward = "a+b c&d=e%20/?#\"é中\x01";
  auto config = plain;
  config.voice = awkward;
  auto url = SessionProtocol::socketURL(platform::URL("http://h/b"), awkward, config);
  EXPECT_EQ(url.params().size(), 6U);
  EXPECT_EQ((*url.params().begin()).value, awkward);
  EXPECT_EQ((*url.params().find_last("voice")).value, awkward);
  EXPECT_EQ(std::string(url.encoded_query()).find_first_of("+ #"), std::string::npos)
      << "servers differ in what a bare plus means";
  EXPECT_TRUE(url.encoded_fragment().empty());
}

TEST(IncomingFrame, ReadsEveryKind) {
  EXPECT_EQ(SessionProtocol::event(R"({"type":"ready","secondsLeft":12.5,"more":[1]})"),
            Event(Session::Ready{12.5}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"balance","secondsLeft":-3})"), Event(Session::Balance{-3}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"src","text":"Hi","stash":" the","final":true})"),
            Event(Session::Caption{Kind::source, "Hi", " the", true}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"tr","text":"\u4f60好\ud83d\ude00"})"),
            Event(Session::Caption{Kind::translation, "你好😀", "", false}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"status","state":"reconnecting"})"),
            Event(Session::Reconnecting{}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"error","code":"busy","message":"忙"})"),
            Event(Session::Failed{"忙", "busy"}));
}

TEST(IncomingFrame, PutsADefaultForWhatIsMissingOrOfTheWrongType) {
  EXPECT_EQ(SessionProtocol::event(R"({"type":"ready"})"), Event(Session::Ready{0}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"ready","secondsLeft":"5"})"), Event(Session::Ready{0}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"ready","secondsLeft":true})"), Event(Session::Ready{0}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"balance","secondsLeft":1e999})"), Event(Session::Balance{0}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"tr","text":7,"stash":null,"final":1})"),
            Event(Session::Caption{Kind::translation, "", "", false}));
  EXPECT_EQ(SessionProtocol::event(R"({"type":"error","code":3})"),
            Event(Session::Failed{"翻译服务出错", "upstream"}));
}

TEST(IncomingFrame, DropsWhatItDoesNotUnderstand) {
  const std::string deep =
      R"({"type":"ready","x":)" + std::string(200'000, '[') + std::string(200'000, ']') + "}";
  for (const std::string frame :
       {"", "null", "[]", "{}", R"([{"type":"ready"}])", R"({"type":5})", R"({"type":"Ready"})", R"("ready")",
        R"({"type":"ready"} {"type":"ready"})", R"({"type":"ready")", R"({"type":"status"})",
        R"({"type":"status","state":"fine"})", R"({"type":"status","state":1})", R"({"type":"reconnecting"})",
        "{\"type\":\"ready\",\"x\":\"\xff\"}", "\xef\xbb\xbf{\"type\":\"ready\"}",
        R"({"type":"ready","x":NaN})"}) {
    EXPECT_EQ(SessionProtocol::event(frame), std::nullopt) << frame;
  }
  EXPECT_EQ(SessionProtocol::event(deep), std::nullopt);
}

TEST(IncomingFrame, TakesAHugeLine) {
  const std::string line(5'000'000, 'a');
  const auto event = SessionProtocol::event(R"({"type":"tr","text":")" + line + R"("})");
  EXPECT_EQ(event, Event(Session::Caption{Kind::translation, line, "", false}));
}

} // namespace
} // namespace tolvera
