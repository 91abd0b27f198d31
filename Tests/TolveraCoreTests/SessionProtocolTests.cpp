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

TEST(SocketURL, TurnsSchemeOfBase) {
  const std::pair<const char*, const char*> addresses[] = {
      {"https://example.org/base", "wss://example.org/base/ws"},
      {"http://[::1]:8080", "ws://[::1]:8080/ws"},
      {"wss://example.org/base", "wss://example.org/base/ws"},
      {"HTTP://example.org", "HTTP://example.org/ws"},
      {"http://example.org/http/", "ws://example.org/http//ws"}};
  for (const auto& [base, expected] : addresses)
    EXPECT_EQ(address(base, plain), std::string(expected) + "?token=t&target=es&source=auto&dub=0&src=1");
}

TEST(SocketURL, PutsVoiceLast) {
  auto config = plain;
  config.dub = true;
  config.showSource = false;
  config.voice = "";
  EXPECT_THAT(address("http://h", config), testing::EndsWith("&dub=1&src=0&voice="));
  config.voice = "warm";
  EXPECT_THAT(address("http://h", config), testing::EndsWith("&dub=1&src=0&voice=warm"));
}

TEST(SocketURL, EncodesAnyTextInQuery) {
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

TEST(IncomingFrame, ReadsEveryKindWithDefaults) {
  const std::pair<const char*, Event> frames[] = {
      {R"({"type":"ready","secondsLeft":12.5,"more":[1]})", Session::Ready{12.5}},
      {R"({"type":"balance","secondsLeft":-3})", Session::Balance{-3}},
      {R"({"type":"src","text":"Hi","stash":" the","final":true})",
       Session::Caption{Kind::source, "Hi", " the", true}},
      {R"({"type":"tr","text":"\u4f60好\ud83d\ude00"})",
       Session::Caption{Kind::translation, "你好😀", "", false}},
      {R"({"type":"status","state":"reconnecting"})", Session::Reconnecting{}},
      {R"({"type":"error","code":"busy","message":"忙"})", Session::Failed{"忙", "busy"}},
      {R"({"type":"ready"})", Session::Ready{0}},
      {R"({"type":"ready","secondsLeft":"5"})", Session::Ready{0}},
      {R"({"type":"ready","secondsLeft":true})", Session::Ready{0}},
      {R"({"type":"balance","secondsLeft":1e999})", Session::Balance{0}},
      {R"({"type":"tr","text":7,"stash":null,"final":1})",
       Session::Caption{Kind::translation, "", "", false}},
      {R"({"type":"error","code":3})", Session::Failed{"翻译服务出错", "upstream"}}};
  for (const auto& [text, event] : frames) EXPECT_EQ(SessionProtocol::event(text), event) << text;
}

TEST(IncomingFrame, IsDroppedIfNotUnderstood) {
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

} // namespace
} // namespace tolvera
