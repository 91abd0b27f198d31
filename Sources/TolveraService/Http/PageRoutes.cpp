#include "TolveraService/Http/PageRoutes.h"

#include "TolveraService/Accounts/Packs.h"
#include "TolveraService/Accounts/Secrets.h"
#include "TolveraService/Http/PageMarkup.h"

#include <boost/url.hpp>

#include <array>
#include <cstdio>

namespace tolvera::service {

namespace {

using Link = AccountStore::Link;
using Outcome = AccountStore::Outcome;
using Purpose = AccountStore::Purpose;

constexpr std::string_view base = "/livetranslate";
constexpr std::string_view cookieName = "tolvera-form";
constexpr std::size_t secretLength = 43;

constexpr Wording signInTitle{"登录本地账户", "Sign in to the local account"};
constexpr Wording purchaseTitle{"添加翻译时长", "Add translation time"};
constexpr Wording plainWords{
    "这是运行在这台电脑上的本地服务，不是支付宝：不会访问任何支付宝账户，也不会发生任何付款。",
    "This is the local service on this computer, not Alipay: no Alipay account is touched and "
    "no money moves."};
constexpr Wording outOfDate{"这个页面已经过期，请在下面重新确认。",
                            "This page was out of date. Please confirm again."};

std::string pathOf(Purpose purpose) { return purpose == Purpose::signIn ? "/sign-in" : "/purchase"; }

std::string localAddress(Purpose purpose, std::string_view code, TextLanguage language) {
  std::string address(base);
  address += pathOf(purpose);
  address += "?code=";
  address += boost::urls::encode(code, boost::urls::unreserved_chars);
  address += "&lang=";
  address += codeOf(language);
  return address;
}

TextLanguage other(TextLanguage language) {
  return language == TextLanguage::chinese ? TextLanguage::english : TextLanguage::chinese;
}

std::string paragraph(std::string_view text, std::string_view kind = {}) {
  std::string markup = "<p";
  if (!kind.empty()) markup += " class=\"" + std::string(kind) + "\"";
  return markup + ">" + escapedHTML(text) + "</p>";
}

std::string amount(int hundredths) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%d.%02d", hundredths / 100, hundredths % 100);
  return text.data();
}

std::string hoursText(double hours, TextLanguage language) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%g", hours);
  return text.data() + std::string(language == TextLanguage::chinese ? " 小时" : " hours");
}

std::string detail(std::string_view name, std::string_view value) {
  return "<dt>" + escapedHTML(name) + "</dt><dd>" + escapedHTML(value) + "</dd>";
}

std::string packDetails(const Pack& pack, const Link& link, TextLanguage language) {
  const bool chinese = language == TextLanguage::chinese;
  std::string list = "<dl>" + detail(chinese ? "时长" : "Time", hoursText(pack.hours, language)) +
                     detail(chinese ? "标价（不收取）" : "Listed price (not charged)",
                            "¥" + amount(pack.fen) + " / $" + amount(pack.cents));
  if (link.purpose == Purpose::purchase) list += detail(chinese ? "订单" : "Order", link.order);
  return list + "</dl>";
}

// A page that holds one message.
Response message(unsigned status, TextLanguage language, const Wording& title, const Wording& text,
                 const std::string& otherLanguage = {}) {
  return page(status,
              {language, std::string(title.in(language)),
               paragraph(text.in(language)) + paragraph(plainWords.in(language), "quiet"), otherLanguage});
}

Response unusable(Outcome outcome, TextLanguage language, const std::string& otherLanguage) {
  if (outcome == Outcome::usedBefore)
    return message(
        410, language, {"这个页面已经用过了", "This page has been used"},
        {"它的操作已经完成，不会再执行一次。可以关闭这个页面，回到 Tolvera。",
         "What it was for is done and will not be done again. You can close it and go back to Tolvera."},
        otherLanguage);
  if (outcome == Outcome::signInFirst)
    return message(409, language, {"请先登录", "Sign in first"},
                   {"时长归本地账户所有。请回到 Tolvera 登录，然后再添加时长。",
                    "Time belongs to the local account. Go back to Tolvera, sign in, and add time again."},
                   otherLanguage);
  return message(
      404, language, {"这个链接无效", "This link does not work"},
      {"链接可能已过期。请回到 Tolvera 重新打开。", "It may be too old. Open the page from Tolvera again."},
      otherLanguage);
}

std::string formItem(std::string_view body, std::string_view name) {
  return queryItem("/?" + std::string(body), name);
}

std::string cookieOf(const Request& request) {
  std::string_view rest = request.cookie;
  while (!rest.empty()) {
    std::string_view item = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(rest.size(), item.size() + 1));
    item.remove_prefix(std::min(item.size(), item.find_first_not_of(' ')));
    if (item.starts_with(cookieName) && item.size() == cookieName.size() + 1 + secretLength &&
        item[cookieName.size()] == '=')
      return std::string(item.substr(cookieName.size() + 1));
  }
  return {};
}

} // namespace

std::string PageRoutes::address(std::string_view host, Purpose purpose, std::string_view code,
                                TextLanguage language) {
  return "http://" + std::string(host) + localAddress(purpose, code, language);
}

std::optional<Response> PageRoutes::answer(std::string_view path, const Request& request) {
  const auto wrongMethod = [&](std::string_view allowed) {
    Response response = message(405, languageOf(request), {"不支持这种请求", "No such request"},
                                {"这个页面不接受这种请求。", "This page does not take such a request."});
    response.headers.emplace_back("Allow", allowed);
    return response;
  };
  const bool read = request.method == "GET";
  for (const Purpose purpose : {Purpose::signIn, Purpose::purchase}) {
    if (path != pathOf(purpose)) continue;
    if (read) return show(request, purpose);
    return request.method == "POST" ? confirm(request, purpose) : wrongMethod("GET, POST");
  }
  if (path != "/privacy" && path != "/style.css") return std::nullopt;
  if (!read) return wrongMethod("GET");
  if (path == "/style.css") return styleSheet();
  const TextLanguage language = languageOf(request);
  const Wording title{"隐私", "Privacy"};
  return page(200, {language, std::string(title.in(language)), privacyBody(language, destinations_),
                    std::string(base) + "/privacy?lang=" + std::string(codeOf(other(language)))});
}

Response PageRoutes::show(const Request& request, Purpose purpose) {
  const std::string code = queryItem(request.target, "code");
  const TextLanguage language = languageOf(request);
  const auto link = accounts_.findLink(code);
  const std::string elsewhere = localAddress(purpose, code, other(language));
  if (!link || link->purpose != purpose) return unusable(Outcome::unknownCode, language, elsewhere);
  if (link->used) return unusable(Outcome::usedBefore, language, elsewhere);
  if (purpose == Purpose::purchase && !link->signedIn)
    return unusable(Outcome::signInFirst, language, elsewhere);
  return form(request, *link, code, {});
}

Response PageRoutes::form(const Request& request, const Link& link, const std::string& code,
                          std::string_view note) {
  const TextLanguage language = languageOf(request);
  std::string cookie = cookieOf(request);
  const bool newCookie = cookie.empty();
  if (newCookie) cookie = makeSecret();
  const bool signIn = link.purpose == Purpose::signIn;
  const Wording does =
      signIn ? Wording{"确认后，这个安装将使用本机的本地账户，剩余时长也会转入该账户。",
                       "Once you confirm, this installation uses the local account of this computer, and the "
                       "time it has "
                       "left moves there."}
             : Wording{"确认后，下面的时长会加到本机的本地账户。",
                       "Once you confirm, the time below is added to the local account of this computer."};
  const Wording button = signIn ? Wording{"登录本地账户", "Sign in"} : Wording{"确认添加", "Add the time"};
  std::string body;
  if (!note.empty()) body += paragraph(note, "note");
  body += paragraph(does.in(language));
  if (const Pack* pack = findPack(link.pack)) {
    if (signIn)
      body += paragraph(
          Wording{"登录后可以接着添加所选的时长：", "After that you can go on and add the time you chose:"}
              .in(language));
    body += packDetails(*pack, link, language);
  }
  body += paragraph(plainWords.in(language), "note");
  body += "<form method=\"post\" action=\"" + escapedHTML(localAddress(link.purpose, code, language)) +
          "\"><input type=\"hidden\" name=\"code\" value=\"" + escapedHTML(code) +
          "\"><input type=\"hidden\" name=\"proof\" value=\"" + proof(code, cookie) +
          "\"><button type=\"submit\">" + escapedHTML(button.in(language)) + "</button></form>";
  Response response = page(200, {language, std::string((signIn ? signInTitle : purchaseTitle).in(language)),
                                 body, localAddress(link.purpose, code, other(language))});
  if (newCookie)
    response.headers.emplace_back("Set-Cookie", std::string(cookieName) + "=" + cookie +
                                                    "; Path=/livetranslate; HttpOnly; SameSite=Strict");
  return response;
}

Response PageRoutes::confirm(const Request& request, Purpose purpose) {
  const TextLanguage language = languageOf(request);
  const std::string code = formItem(request.body, "code");
  const std::string cookie = cookieOf(request);
  const std::string elsewhere = localAddress(purpose, code, other(language));
  const auto link = accounts_.findLink(code);
  if (!link || link->purpose != purpose) return unusable(Outcome::unknownCode, language, elsewhere);
  if (link->used) return unusable(Outcome::usedBefore, language, elsewhere);
  if (cookie.empty() || formItem(request.body, "proof") != proof(code, cookie))
    return form(request, *link, code, outOfDate.in(language));
  Outcome outcome = Outcome::unknownCode;
  if (purpose == Purpose::signIn) {
    outcome = accounts_.confirmSignIn(code);
  } else if (const Pack* pack = findPack(link->pack)) {
    constexpr double secondsPerHour = 3600;
    outcome = accounts_.confirmPurchase(code, pack->hours * secondsPerHour);
  }
  if (outcome != Outcome::done) return unusable(outcome, language, elsewhere);
  return confirmed(request, *link, language);
}

Response PageRoutes::confirmed(const Request& request, const Link& link, TextLanguage language) {
  const Wording close{"可以关闭这个页面，回到 Tolvera。", "You can close this page and go back to Tolvera."};
  const Pack* pack = findPack(link.pack);
  if (link.purpose == Purpose::signIn) {
    std::string body = paragraph(Wording{"这个安装现在使用本机的本地账户。",
                                         "This installation now uses the local account of this computer."}
                                     .in(language));
    if (pack != nullptr) {
      const std::string next =
          accounts_.makeLink(link.installation, Purpose::purchase, link.pack, link.order);
      body += packDetails(*pack, link, language) + "<p><a class=\"button\" href=\"" +
              escapedHTML(address(request.host, Purpose::purchase, next, language)) + "\">" +
              escapedHTML(Wording{"接着添加时长", "Go on to add the time"}.in(language)) + "</a></p>";
    } else {
      body += paragraph(close.in(language));
    }
    body += paragraph(plainWords.in(language), "quiet");
    return page(200, {language, std::string(Wording{"已登录", "Signed in"}.in(language)), body, {}});
  }
  std::string body = pack != nullptr ? packDetails(*pack, link, language) : std::string();
  body += paragraph(close.in(language)) + paragraph(plainWords.in(language), "quiet");
  return page(200, {language, std::string(Wording{"时长已添加", "Time added"}.in(language)), body, {}});
}

std::string PageRoutes::proof(std::string_view code, std::string_view cookie) const {
  // Both have a fixed length here, so no other pair of texts joins to the same text.
  const SecretHash hash = keyedHash(key_, std::string(code) + "\n" + std::string(cookie));
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : hash) text += {digits[byte >> 4], digits[byte & 15]};
  return text;
}

} // namespace tolvera::service
