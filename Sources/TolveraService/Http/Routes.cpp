#include "TolveraService/Http/Routes.h"

#include "TolveraService/Accounts/Packs.h"

#include "Async/Log.h"

#include <boost/json.hpp>

#include <cstdio>
#include <exception>

namespace tolvera::service {

namespace json = boost::json;

namespace {

constexpr Wording nothingHere{"没有这个地址。", "There is nothing at this address."};
constexpr Wording wrongMethod{"这个地址不接受这种请求。", "This address does not take such a request."};
constexpr Wording unknownAccount{"本地服务不认识这个账户。", "The local service does not know this account."};
constexpr Wording unknownPack{"没有这个时长包。", "There is no such pack."};
constexpr Wording unknownMethod{"没有这种付款方式。", "There is no such payment method."};
constexpr Wording notJSON{"请求内容必须是 JSON 对象，值都是文本。",
                          "The body has to be a JSON object of texts."};
constexpr Wording tooMany{"请求太频繁，请稍后再试。", "Too many requests. Try again later."};
constexpr Wording storeFault{
    "本地服务暂时无法读写账户，请稍后再试。",
    "The local service cannot read or write its accounts at the moment. Try again later."};

Response ok(const json::object& body) {
  Response response;
  response.body = json::serialize(body);
  return response;
}

json::array packList() {
  json::array list;
  for (const Pack& pack : packs) {
    json::object item{{"id", pack.id}, {"hours", pack.hours}, {"cents", pack.cents}, {"fen", pack.fen}};
    if (pack.popular) item["popular"] = true;
    list.push_back(std::move(item));
  }
  return list;
}

std::string textOf(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

std::string newOrderNumber() {
  constexpr std::size_t length = 12;
  return makeSecret().substr(0, length);
}

} // namespace

Response refuse(unsigned status, TextLanguage language, const Wording& wording) {
  Response response = ok({{"error", wording.in(language)}});
  response.status = status;
  return response;
}

Response Routes::answer(const Request& request) {
  try {
    return dispatch(request);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tolvera-service: a request failed: %s\n", error.what());
    return refuse(503, languageOf(request), storeFault);
  }
}

Response Routes::dispatch(const Request& request) {
  struct Route {
    std::string_view path;
    std::string_view method;
    Handler handler;
  };
  static constexpr std::array<Route, 6> routes = {{{"/api/signup", "POST", &Routes::signup},
                                                   {"/api/me", "GET", &Routes::me},
                                                   {"/api/about", "GET", &Routes::about},
                                                   {"/api/checkout", "POST", &Routes::checkout},
                                                   {"/api/auth/alipay/url", "GET", &Routes::signInAddress},
                                                   {"/api/auth/unbind", "POST", &Routes::unbind}}};
  const std::string_view whole = request.target;
  const std::string_view path = whole.substr(0, whole.find('?'));
  if (!path.starts_with(base)) return refuse(404, languageOf(request), nothingHere);
  const std::string_view rest = path.substr(base.size());
  for (const Route& route : routes) {
    if (rest != route.path) continue;
    if (request.method == route.method) return (this->*route.handler)(request);
    Response response = refuse(405, languageOf(request), wrongMethod);
    response.headers.emplace_back("Allow", route.method);
    return response;
  }
  if (auto page = pages_.answer(rest, request)) return std::move(*page);
  return refuse(404, languageOf(request), nothingHere);
}

std::optional<AccountStore::Account> Routes::caller(const Request& request) {
  constexpr std::string_view scheme = "Bearer ";
  const std::string_view header = request.authorization;
  if (!header.starts_with(scheme)) return std::nullopt;
  return accounts_.find(header.substr(scheme.size()));
}

Response Routes::signup(const Request& request) {
  if (!signups_.allows()) return refuse(429, languageOf(request), tooMany);
  const AccountStore::Signup signup = accounts_.signUp();
  log::trace(log::Category::service, "signups since the start: ", ++signupCount_);
  return ok({{"token", signup.token}, {"secondsLeft", signup.secondsLeft}});
}

Response Routes::me(const Request& request) {
  const auto account = caller(request);
  if (!account) return refuse(401, languageOf(request), unknownAccount);
  return ok({{"secondsLeft", account->secondsLeft},
             {"secondsUsed", account->secondsUsed},
             {"dubMultiplier", dubMultiplier},
             {"voices", json::array(voices_.begin(), voices_.end())},
             {"paymentMethods", json::array{"alipay"}},
             {"loginMethods", json::array{"alipay"}},
             {"signedIn", account->signedIn},
             {"packs", packList()}});
}

// For people who look for a fault; the programs do not depend on it.
Response Routes::about(const Request&) { return ok(about_()); }

Response Routes::checkout(const Request& request) {
  const auto account = caller(request);
  if (!account) return refuse(401, languageOf(request), unknownAccount);
  boost::system::error_code error;
  const json::value body = json::parse(request.body, error);
  if (error || !body.is_object()) return refuse(400, languageOf(request), notJSON);
  const json::object& order = body.get_object();
  const TextLanguage language = languageNamed(textOf(order, "lang")).value_or(languageOf(request));
  const Pack* pack = findPack(textOf(order, "pack"));
  if (pack == nullptr) return refuse(400, language, unknownPack);
  if (textOf(order, "method") != "alipay") return refuse(400, language, unknownMethod);
  if (!links_.allows()) return refuse(429, language, tooMany);
  // Hours belong to the local account. An installation that is not signed in is led to the sign-in first and
  // from there to the purchase.
  const auto purpose = account->signedIn ? AccountStore::Purpose::purchase : AccountStore::Purpose::signIn;
  const std::string number = newOrderNumber();
  const std::string code = accounts_.makeLink(account->installation, purpose, pack->id, number);
  return ok({{"url", PageRoutes::address(request.host, purpose, code, language)},
             {"orderId", number},
             {"signIn", !account->signedIn}});
}

Response Routes::signInAddress(const Request& request) {
  const TextLanguage language = languageOf(request);
  const auto account = caller(request);
  if (!account) return refuse(401, language, unknownAccount);
  const std::string pack = queryItem(request.target, "pack");
  if (!pack.empty() && findPack(pack) == nullptr) return refuse(400, language, unknownPack);
  if (!links_.allows()) return refuse(429, language, tooMany);
  constexpr auto purpose = AccountStore::Purpose::signIn;
  const std::string code = accounts_.makeLink(account->installation, purpose, pack, newOrderNumber());
  return ok({{"url", PageRoutes::address(request.host, purpose, code, language)}});
}

Response Routes::unbind(const Request& request) {
  const auto account = caller(request);
  if (!account) return refuse(401, languageOf(request), unknownAccount);
  const AccountStore::Account after = accounts_.signOut(account->installation);
  return ok({{"signedIn", after.signedIn}, {"secondsLeft", after.secondsLeft}});
}

} // namespace tolvera::service
