#include "ServiceTests/Browser.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace tolvera::test {

namespace json = boost::json;

constexpr std::chrono::milliseconds look{20};
constexpr int looks = 500;

std::unique_ptr<Browser> Browser::start(int width) {
  auto browser = std::make_unique<Browser>();
  for (int looked = 0; browser->port() == 0; ++looked) {
    if (!browser->driver_.running()) return nullptr;
    if (looked == looks) throw std::runtime_error("the browser's driver does not start");
    std::this_thread::sleep_for(look);
  }
  browser->client_ = HTTPClient(browser->port());
  const std::string profile = "--user-data-dir=" + browser->directory_.path().string();
  const json::object options{
      {"args", {"--headless=new", "--no-sandbox", "--disable-gpu", profile}},
      {"mobileEmulation", {{"deviceMetrics", {{"width", width}, {"height", 900}, {"pixelRatio", 1.0}}}}}};
  const json::object wanted{{"browserName", "chrome"}, {"goog:chromeOptions", options}};
  const auto session = browser->command("", {{"capabilities", {{"alwaysMatch", wanted}}}});
  browser->session_ += "/" + std::string(session.at("sessionId").as_string());
  return browser;
}

std::uint16_t Browser::port() const {
  std::uint16_t port = 0;
  std::ifstream log(directory_ / "log");
  for (std::string line; std::getline(log, line);)
    std::sscanf(line.c_str(), "ChromeDriver was started successfully on port %hu", &port);
  return port;
}

json::value Browser::command(const std::string& path, const json::object& body) {
  const HTTPReply reply = client_.post(session_ + path, {}, json::serialize(body));
  if (reply.status != 200) throw std::runtime_error("the browser refuses " + path + ": " + reply.body);
  return reply.json().at("value");
}

bool Browser::waitForText(const std::string& selector, const std::string& text) {
  for (int looked = 0; looked < looks; ++looked, std::this_thread::sleep_for(look)) {
    try {
      if (run("return document.querySelector('" + selector + "')?.innerText") == json::value(text))
        return true;
    } catch (const std::runtime_error&) {
    } // between two pages
  }
  return false;
}

} // namespace tolvera::test
