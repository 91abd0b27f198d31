#include "TolveraCore/SessionProtocol.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <boost/url/encode.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>

#include <cmath>

namespace json = boost::json;

namespace tolvera::SessionProtocol {

namespace {

// Deeper than any real frame, and shallow enough that freeing one cannot exhaust the stack.
constexpr std::size_t deepestFrame = 128;

void append(std::string& query, std::string_view key, std::string_view value) {
  if (!query.empty()) query += '&';
  query += key;
  query += '=';
  // Escapes everything but the unreserved characters. "+" is escaped too, since some servers read it as a
  // space.
  query += boost::urls::encode(value, boost::urls::unreserved_chars);
}

std::string text(const json::object& frame, std::string_view key, std::string_view otherwise = "") {
  const auto* value = frame.if_contains(key);
  return std::string(value && value->is_string() ? std::string_view(value->get_string()) : otherwise);
}

double number(const json::object& frame, std::string_view key) {
  const auto* value = frame.if_contains(key);
  if (!value || !value->is_number()) return 0;
  const auto result = value->to_number<double>();
  return std::isfinite(result) ? result : 0;
}

bool flag(const json::object& frame, std::string_view key) {
  const auto* value = frame.if_contains(key);
  return value && value->is_bool() && value->get_bool();
}

TranslateSession::Caption caption(TranslateSession::CaptionKind kind, const json::object& frame) {
  return {kind, text(frame, "text"), text(frame, "stash"), flag(frame, "final")};
}

} // namespace

platform::URL socketURL(const platform::URL& baseURL, std::string_view token,
                        const TranslateSession::Config& config) {
  std::string address(baseURL.buffer());
  if (address.starts_with("https")) {
    address.replace(0, 5, "wss");
  } else if (address.starts_with("http")) {
    address.replace(0, 4, "ws");
  }
  address += "/ws";

  std::string query;
  append(query, "token", token);
  append(query, "target", config.target);
  append(query, "source", config.source);
  append(query, "dub", config.dub ? "1" : "0");
  append(query, "src", config.showSource ? "1" : "0");
  if (config.voice) append(query, "voice", *config.voice);

  // Both changes above keep the text a valid address, so parsing succeeds.
  platform::URL url = boost::urls::parse_uri_reference(address).value();
  url.set_encoded_query(query);
  return url;
}

std::optional<TranslateSession::Event> event(std::string_view textFrame) {
  using Kind = TranslateSession::CaptionKind;
  json::parse_options options;
  options.max_depth = deepestFrame;
  json::error_code malformed;
  const auto parsed = json::parse(textFrame, malformed, {}, options);
  if (malformed || !parsed.is_object()) return std::nullopt;
  const auto& frame = parsed.get_object();

  const auto type = text(frame, "type");
  if (type == "ready") return TranslateSession::Ready{number(frame, "secondsLeft")};
  if (type == TranslateSession::rawValue(Kind::source)) return caption(Kind::source, frame);
  if (type == TranslateSession::rawValue(Kind::translation)) return caption(Kind::translation, frame);
  if (type == "balance") return TranslateSession::Balance{number(frame, "secondsLeft")};
  if (type == "status" && text(frame, "state") == "reconnecting") return TranslateSession::Reconnecting{};
  if (type == "error") {
    return TranslateSession::Failed{text(frame, "message", "翻译服务出错"), text(frame, "code", "upstream")};
  }
  return std::nullopt;
}

} // namespace tolvera::SessionProtocol
