#pragma once

#include "ServiceTests/StreamClient.h"
#include "Support/TemporaryDirectory.h"

#include <sys/types.h>

#include <memory>
#include <string>

namespace tolvera::test {

// A real browser without a window, driven from outside. Ends with the object.
class Browser {
 public:
  // Null if the browser or its driver is not installed.
  static std::unique_ptr<Browser> start(int width);
  ~Browser();

  void open(const std::string& url);
  // Clicks the one element that the CSS selector finds; the page that follows may take a moment.
  void click(const std::string& selector);
  [[nodiscard]] std::string title();
  [[nodiscard]] std::string text(const std::string& selector);
  // Waits until the element has the text.
  [[nodiscard]] bool waitForText(const std::string& selector, const std::string& text);
  // What a piece of JavaScript returns, for instance "return 1".
  boost::json::value run(const std::string& script);

 private:
  Browser(pid_t driver, std::uint16_t port) : driver_(driver), client_(port) {}
  void begin(int width);
  boost::json::value command(std::string_view method, const std::string& path,
                             const boost::json::object& body = {});
  std::string element(const std::string& selector);

  pid_t driver_;
  HTTPClient client_;
  TemporaryDirectory profile_;
  std::string session_;
};

} // namespace tolvera::test
