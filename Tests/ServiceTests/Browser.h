#pragma once

#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"
#include "ServiceTests/StreamClient.h"

#include <memory>
#include <string>

namespace tolvera::test {

// A real browser without a window, driven from outside. Ends with the object.
class Browser {
 public:
  // Null if the browser's driver is not installed. Throws if it does not start.
  static std::unique_ptr<Browser> start(int width);
  ~Browser() { static_cast<void>(client_.request("DELETE", session_)); }

  void open(const std::string& url) { command("/url", {{"url", url}}); }
  // Clicks the first element that the CSS selector finds; the page that follows may take a moment.
  void click(const std::string& selector) { run("document.querySelector('" + selector + "').click()"); }
  // Waits until the element has the text.
  [[nodiscard]] bool waitForText(const std::string& selector, const std::string& text);
  // The result of a piece of JavaScript, for instance "return 1".
  boost::json::value run(const std::string& script) {
    return command("/execute/sync", {{"script", script}, {"args", boost::json::array{}}});
  }

 private:
  [[nodiscard]] std::uint16_t port() const; // 0 until the driver has printed it
  boost::json::value command(const std::string& path, const boost::json::object& body);

  TemporaryDirectory directory_;
  ChildProcess driver_{{"chromedriver", "--port=0"}, (directory_ / "log").string()};
  HTTPClient client_{0};
  std::string session_ = "/session";
};

} // namespace tolvera::test
