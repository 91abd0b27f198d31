#include "TolveraService/Routes.h"

#include <boost/json.hpp>
#include <boost/url.hpp>

#include <array>
#include <cstdio>

namespace tolvera::service {

namespace json = boost::json;

namespace {

struct Pack {
  std::string_view id;
  double hours;
  int cents;
  int fen;
  bool popular;
};
constexpr std::array<Pack, 3> packs = {{{"hours-5", 5, 199, 1400, false},
                                        {"hours-20", 20, 599, 4200, true},
                                        {"hours-100", 100, 2399, 16800, false}}};

constexpr double dubMultiplier = 4;

Response ok(const json::object& body) { return {200, "application/json", json::serialize(body), {}}; }

json::array packList() {
  json::array list;
  for (const Pack& pack : packs) {
    json::object item{{"id", pack.id}, {"hours", pack.hours}, {"cents", pack.cents}, {"fen", pack.fen}};
    if (pack.popular) item["popular"] = true;
    list.push_back(std::move(item));
  }
  return list;
}

} // namespace

TextLanguage languageOf(const Request& request) {
  if (const auto url = boost::urls::parse_origin_form(request.target)) {
    const auto items = url->params();
    const auto lang = items.find("lang");
    if (lang != items.end()) {
      const std::string value((*lang).value);
      if (value.starts_with("zh")) return TextLanguage::chinese;
      if (value.starts_with("en")) return TextLanguage::english;
    }
  }
  const std::size_t zh = request.acceptLanguage.find("zh");
  const std::size_t en = request.acceptLanguage.find("en");
  return zh < en ? TextLanguage::chinese : TextLanguage::english;
}

Response refuse(unsigned status, const Request& request, std::string_view chinese, std::string_view english) {
  const std::string_view text = languageOf(request) == TextLanguage::chinese ? chinese : english;
  return {status, "application/json", json::serialize(json::object{{"error", text}}), {}};
}

Response Routes::answer(const Request& request) {
  try {
    return dispatch(request);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tolvera-service: a request failed: %s\n", error.what());
    return refuse(503, request, "本地服务暂时无法读写账户，请稍后再试。",
                  "The local service cannot read or write its accounts at the moment. Try again later.");
  }
}

Response Routes::dispatch(const Request& request) {
  const auto url = boost::urls::parse_origin_form(request.target);
  const std::string_view whole = request.target;
  const std::string_view path = whole.substr(0, whole.find('?'));
  if (!url || !path.starts_with(base))
    return refuse(404, request, "没有这个地址。", "There is nothing at this address.");
  const std::string_view rest = path.substr(base.size());
  const auto only = [&](std::string_view method, auto&& handle) -> Response {
    if (request.method == method) return handle();
    Response response =
        refuse(405, request, "这个地址不接受这种请求。", "This address does not take such a request.");
    response.headers.emplace_back("Allow", method);
    return response;
  };
  if (rest == "/api/signup") return only("POST", [&] { return signup(); });
  if (rest == "/api/me") return only("GET", [&] { return me(request); });
  return refuse(404, request, "没有这个地址。", "There is nothing at this address.");
}

Response Routes::signup() {
  const AccountStore::Signup signup = accounts_.signUp();
  return ok({{"token", signup.token}, {"secondsLeft", signup.secondsLeft}});
}

Response Routes::me(const Request& request) {
  constexpr std::string_view scheme = "Bearer ";
  const std::string_view header = request.authorization;
  std::optional<AccountStore::Account> account;
  if (header.starts_with(scheme)) account = accounts_.find(header.substr(scheme.size()));
  if (!account)
    return refuse(401, request, "本地服务不认识这个账户。", "The local service does not know this account.");
  return ok({{"secondsLeft", account->secondsLeft},
             {"secondsUsed", account->secondsUsed},
             {"dubMultiplier", dubMultiplier},
             {"voices", json::array{}},
             {"paymentMethods", json::array{"alipay"}},
             {"loginMethods", json::array{"alipay"}},
             {"signedIn", account->signedIn},
             {"packs", packList()}});
}

} // namespace tolvera::service
