#include "TolveraCore/API.h"

#include "Platform/PlatformError.h"

#include <boost/describe/class.hpp>
#include <boost/describe/members.hpp>
#include <boost/describe/modifiers.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <boost/mp11/algorithm.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

namespace json = boost::json;

namespace tolvera {

BOOST_DESCRIBE_STRUCT(API::Pack, (), (id, hours, cents, fen, popular))
BOOST_DESCRIBE_STRUCT(API::Signup, (), (token, secondsLeft))
BOOST_DESCRIBE_STRUCT(API::Me, (),
                      (secondsLeft, secondsUsed, dubMultiplier, voices, paymentMethods, loginMethods,
                       signedIn, packs))
BOOST_DESCRIBE_STRUCT(API::AuthURL, (), (url))
BOOST_DESCRIBE_STRUCT(API::SignOut, (), (signedIn, secondsLeft))
BOOST_DESCRIBE_STRUCT(API::Checkout, (), (url, orderId, signIn))

namespace {

json::value parse(const std::string& body) {
  json::error_code malformed;
  auto parsed = json::parse(body, malformed);
  if (malformed) throw API::DecodingError("the reply is not JSON");
  return parsed;
}

// One function for each type of value. It throws with the value's name if the JSON does not fit the type.
[[noreturn]] void reject(std::string_view name) {
  throw API::DecodingError("the reply's \"" + std::string(name) + "\" is missing or of the wrong type");
}

void read(const json::value& from, std::string_view name, std::string& into) {
  if (!from.is_string()) reject(name);
  into = std::string_view(from.get_string());
}

void read(const json::value& from, std::string_view name, bool& into) {
  if (!from.is_bool()) reject(name);
  into = from.get_bool();
}

void read(const json::value& from, std::string_view name, double& into) {
  if (!from.is_number()) reject(name);
  into = from.to_number<double>();
  if (!std::isfinite(into)) reject(name);
}

void read(const json::value& from, std::string_view name, std::int64_t& into) {
  json::error_code inexact; // a fraction, or beyond 64 bits; "5.0" is a whole number
  if (!from.is_number()) reject(name);
  into = from.to_number<std::int64_t>(inexact);
  if (inexact) reject(name);
}

template<typename T>
void read(const json::value& from, std::string_view name, std::vector<T>& into);

const json::object& object(const json::value& from, std::string_view name) {
  if (!from.is_object()) reject(name);
  return from.get_object();
}

template<typename T>
void readMember(const json::object& from, std::string_view name, T& into) {
  const auto* value = from.if_contains(name);
  if (!value) reject(name);
  read(*value, name, into);
}

template<typename T>
void readMember(const json::object& from, std::string_view name, std::optional<T>& into) {
  const auto* value = from.if_contains(name);
  if (value && !value->is_null()) read(*value, name, into.emplace());
}

// A record: the object has a member of the same name for each of its fields.
template<typename Record>
void read(const json::value& from, std::string_view name, Record& into) {
  const auto& members = object(from, name);
  boost::mp11::mp_for_each<boost::describe::describe_members<Record, boost::describe::mod_public>>(
      [&](auto field) { readMember(members, field.name, into.*field.pointer); });
}

// A token travels in a header and an address, and lies in a file of one line. One that does not would lock
// its user out at every later start.
void read(const json::value& from, std::string_view name, API::Signup& into) {
  read<API::Signup>(from, name, into);
  const auto visible = [](char c) { return c > ' ' && c <= '~'; };
  const bool fits = !into.token.empty() && into.token.size() <= API::longestToken;
  if (!fits || !std::ranges::all_of(into.token, visible)) reject("token");
}

template<typename T>
void read(const json::value& from, std::string_view name, std::vector<T>& into) {
  if (!from.is_array()) reject(name);
  for (const auto& element : from.get_array()) read(element, name, into.emplace_back());
}

// The service's message about a refusal: the "error" of an object that holds only texts.
std::optional<std::string> refusal(const std::string& body) {
  json::error_code malformed;
  const auto parsed = json::parse(body, malformed);
  if (malformed || !parsed.is_object()) return std::nullopt;
  for (const auto& member : parsed.get_object()) {
    if (!member.value().is_string()) return std::nullopt;
  }
  const auto* message = parsed.get_object().if_contains("error");
  if (!message) return std::nullopt;
  return std::string(std::string_view(message->get_string()));
}

platform::URL address(const platform::URL& baseURL, const std::string& path) {
  auto joined = platform::parseURL(std::string(baseURL.buffer()) + path);
  if (!joined) throw platform::PlatformError(platform::transportErrorDomain, EINVAL, "地址无效");
  return *std::move(joined);
}

} // namespace

const platform::URL& API::defaultBaseURL() {
  static const platform::URL url("http://127.0.0.1:18790/livetranslate");
  return url;
}

API::API(const platform::URL& baseURL, platform::URLSession& session)
    : baseURL_(baseURL), session_(&session) {
  std::string text(baseURL.buffer());
  if (!text.ends_with('/')) return;
  text.erase(text.find_last_not_of('/') + 1);
  if (auto parsed = platform::parseURL(text)) baseURL_ = *std::move(parsed);
}

template<typename Reply>
Task<Reply> API::send(API self, std::string path, std::string method, std::optional<std::string> token,
                      std::optional<Body> body) {
  platform::HTTPRequest request;
  request.url = address(self.baseURL_, path);
  request.method = std::move(method);
  request.timeout = std::chrono::seconds(60);
  if (token) request.headers.emplace_back("Authorization", "Bearer " + *token);
  if (body) {
    json::object fields;
    for (const auto& [key, value] : *body) fields[key] = value;
    request.headers.emplace_back("Content-Type", "application/json");
    request.body = json::serialize(fields);
  }

  const auto response = co_await self.session_->data(std::move(request));
  const int status = response.status.value_or(0);
  if (status < 200 || status > 299) {
    auto message = refusal(response.body);
    if (!message) message = "请求失败 (" + std::to_string(status) + ")";
    throw ServerError(*message, status);
  }
  const auto parsed = parse(response.body);
  Reply reply;
  read(parsed, "object", reply);
  co_return reply;
}

Task<API::Signup> API::signup() const { return send<Signup>(*this, "/api/signup", "POST", {}, {}); }

Task<API::Me> API::me(std::string token) const {
  return send<Me>(*this, "/api/me", "GET", std::move(token), {});
}

Task<API::Checkout> API::checkout(std::string token, std::string pack, std::string method,
                                  std::string lang) const {
  Body body{{"pack", std::move(pack)}, {"method", std::move(method)}, {"lang", std::move(lang)}};
  return send<Checkout>(*this, "/api/checkout", "POST", std::move(token), std::move(body));
}

Task<API::AuthURL> API::alipayAuthURL(std::string token, std::optional<std::string> pack,
                                      std::string lang) const {
  auto path = "/api/auth/alipay/url?lang=" + lang;
  if (pack) path += "&pack=" + *pack;
  return send<AuthURL>(*this, std::move(path), "GET", std::move(token), {});
}

Task<API::SignOut> API::signOut(std::string token) const {
  return send<SignOut>(*this, "/api/auth/unbind", "POST", std::move(token), {});
}

} // namespace tolvera
