#include "TolveraService/Http/PageMarkup.h"

namespace tolvera::service {

namespace {

constexpr std::string_view css = R"css(
:root { color-scheme: light dark; --ground: #f4f5f7; --card: #ffffff; --text: #1c1e21; --quiet: #5c6370;
  --line: #dfe2e8; --accent: #2563eb; --accent-text: #ffffff; --note: #eef4ff; }
@media (prefers-color-scheme: dark) { :root { --ground: #131519; --card: #1d2026; --text: #eceef2;
  --quiet: #a3aab8; --line: #333842; --accent: #7aa2ff; --accent-text: #0d1526; --note: #1b2740; } }
* { box-sizing: border-box; }
body { margin: 0; min-height: 100vh; display: flex; flex-direction: column; align-items: center;
  background: var(--ground); color: var(--text);
  font: 1rem/1.6 system-ui, "Noto Sans", "Noto Sans CJK SC", "PingFang SC", sans-serif; }
header { width: 100%; max-width: 46rem; padding: 1.25rem 1.25rem 0; display: flex; justify-content: space-between; }
header strong { letter-spacing: .02em; }
main { width: 100%; max-width: 46rem; padding: 1.25rem; margin: auto; }
article { background: var(--card); border: 1px solid var(--line); border-radius: 1rem;
  padding: clamp(1.25rem, 4vw, 2.75rem); }
h1 { margin: 0 0 1rem; font-size: clamp(1.35rem, 4vw, 1.9rem); line-height: 1.25; }
h2 { margin: 1.75rem 0 .5rem; font-size: 1.1rem; }
p { margin: .75rem 0; } ul { padding-left: 1.25rem; } li { margin: .35rem 0; }
.note { background: var(--note); border-radius: .6rem; padding: .8rem 1rem; }
.quiet { color: var(--quiet); font-size: .92rem; overflow-wrap: anywhere; }
dl { display: grid; grid-template-columns: auto 1fr; gap: .4rem 1.5rem; margin: 1.25rem 0;
  border-top: 1px solid var(--line); border-bottom: 1px solid var(--line); padding: 1rem 0; }
dt { color: var(--quiet); } dd { margin: 0; text-align: right; font-variant-numeric: tabular-nums; }
a { color: var(--accent); }
button, .button { display: inline-block; width: 100%; border: 0; border-radius: .7rem; padding: .85rem 1.5rem;
  background: var(--accent); color: var(--accent-text); font: inherit; font-weight: 600; text-align: center;
  text-decoration: none; cursor: pointer; }
button:focus-visible, a:focus-visible { outline: 3px solid var(--accent); outline-offset: 3px; }
form { margin-top: 1.5rem; }
@media (min-width: 40rem) { button, .button { width: auto; min-width: 14rem; } }
)css";

constexpr std::string_view privacyChinese = R"html(
<p>这里的“本地服务”是在这台电脑上运行的程序 tolvera-service，只接受来自本机的连接。</p>
<h2>声音与文字</h2>
<ul><li>收到的声音只在内存中用于识别，用完即弃，从不写入磁盘。{SOUND}</li>
<li>识别出的文字和译文只送回打开这一路翻译的程序，不保存，也不写入日志。{TEXT}</li></ul>
<h2>保存什么</h2>
<ul><li>每个安装一个随机令牌的散列值（不保存令牌本身），以及剩余和已用的时长。</li>
<li>打开登录或购买页面时，保存一次性代码的散列值、所选时长包和订单号，最多约半小时，下次有人打开页面时清除。</li>
<li>页面设置一个 Cookie，只用于防止其他网站冒充您提交表单，关闭浏览器即失效。</li></ul>
<p>这些内容都在一个只有您能读取的数据库文件里；删除该文件即可全部清除。</p>
<h2>支付宝与付款</h2>
<p>本地服务不会访问任何支付宝账户，也不会发生任何付款。页面上的价格只作示意。</p>
)html";

constexpr std::string_view privacyEnglish = R"html(
<p>The “local service” is the program tolvera-service on this computer. It accepts connections from this computer alone.</p>
<h2>Sound and text</h2>
<ul><li>Sound is kept in memory while it is recognised, then dropped. It is never written to disk. {SOUND}</li>
<li>Recognised text and translations go back to the program that opened the run. They are neither stored nor logged. {TEXT}</li></ul>
<h2>What is stored</h2>
<ul><li>For each installation, a hash of its random token (not the token), and the time that is left and used.</li>
<li>When a sign-in or purchase page is opened: a hash of its one-time code, the chosen pack and an order number, for about half an hour. They are removed when the next page is opened after that.</li>
<li>A cookie that keeps other sites from sending a form in your name. It ends with the browser session.</li></ul>
<p>All of it is in one database file that only you can read. Delete the file and it is gone.</p>
<h2>Alipay and payment</h2>
<p>The local service touches no Alipay account, and no money moves. The prices on its pages are for illustration.</p>
)html";

} // namespace

std::string escapedHTML(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
    case '&':
      result += "&amp;";
      break;
    case '<':
      result += "&lt;";
      break;
    case '>':
      result += "&gt;";
      break;
    case '"':
      result += "&quot;";
      break;
    case '\'':
      result += "&#39;";
      break;
    default:
      result += c;
    }
  }
  return result;
}

Response page(unsigned status, const PageContent& content) {
  const bool chinese = content.language == TextLanguage::chinese;
  std::string html = "<!DOCTYPE html>\n<html lang=\"";
  html += chinese ? "zh-Hans" : "en";
  html += "\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" content=\"width=device-width, "
          "initial-scale=1\">"
          "<title>" +
          escapedHTML(content.title) +
          " · Tolvera</title>"
          "<link rel=\"stylesheet\" "
          "href=\"/livetranslate/style.css\"></head>\n<body><header><strong>Tolvera</strong>";
  if (!content.otherLanguage.empty())
    html += "<a href=\"" + escapedHTML(content.otherLanguage) + "\" lang=\"" + (chinese ? "en" : "zh-Hans") +
            "\">" + (chinese ? "English" : "中文") + "</a>";
  html += "</header><main><article><h1>" + escapedHTML(content.title) + "</h1>" + content.body +
          "</article></main></body></html>\n";
  Response response{status, "text/html; charset=utf-8", std::move(html), {}};
  response.headers = {{"Content-Security-Policy", "default-src 'none'; style-src 'self'; form-action 'self'; "
                                                  "frame-ancestors 'none'; base-uri 'none'"},
                      {"X-Frame-Options", "DENY"},
                      // Not "no-referrer": a browser would then hide where a form comes from.
                      {"Referrer-Policy", "same-origin"}};
  return response;
}

Response styleSheet() { return {200, "text/css; charset=utf-8", std::string(css), {}}; }

std::string privacyBody(TextLanguage language, const Destinations& destinations) {
  std::string body(Wording{privacyChinese, privacyEnglish}.in(language));
  const auto fill = [&](std::string_view place, const std::string& server, const Wording& stays,
                        const Wording& goes) {
    std::string sentence(server.empty() ? stays.in(language) : goes.in(language));
    if (!server.empty()) sentence += "<strong>" + escapedHTML(server) + "</strong>";
    body.replace(body.find(place), place.size(), sentence);
  };
  fill("{SOUND}", destinations.sound, {"它不会发往别处。", "It is not sent anywhere."},
       {"启动本地服务的人设定了识别服务器，声音会发往 ",
        "The person who started the local service has named a server for recognition; the sound goes to "});
  fill("{TEXT}", destinations.text, {"它们不会发往别处。", "They are not sent anywhere else."},
       {"启动本地服务的人设定了翻译服务器，要翻译的文字会发往 ",
        "The person who started the local service has named a server for translation; the text goes to "});
  return body;
}

} // namespace tolvera::service
