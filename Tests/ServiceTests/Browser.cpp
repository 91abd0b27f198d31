#include "ServiceTests/Browser.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <thread>

namespace tolvera::test {

namespace json = boost::json;

std::unique_ptr<Browser> Browser::start(int width) {
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return nullptr;
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  // A group of its own: the browser's many processes end with it.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  std::string name = "chromedriver";
  std::string port = "--port=0";
  std::array<char*, 3> arguments = {name.data(), port.data(), nullptr};
  pid_t driver = 0;
  const int result = ::posix_spawnp(&driver, name.c_str(), &actions, &attributes, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  ::close(pipe[1]);
  std::FILE* output = ::fdopen(pipe[0], "r");
  std::unique_ptr<Browser> browser;
  std::array<char, 500> line{};
  while (result == 0 && !browser && std::fgets(line.data(), line.size(), output) != nullptr) {
    unsigned number = 0;
    if (std::sscanf(line.data(), "ChromeDriver was started successfully on port %u", &number) == 1)
      browser.reset(new Browser(driver, static_cast<std::uint16_t>(number)));
  }
  std::fclose(output);
  if (browser) browser->begin(width);
  return browser;
}

Browser::~Browser() {
  try {
    if (!session_.empty()) command("DELETE", "");
  } catch (const std::exception&) {
    // It is ended below all the same.
  }
  ::kill(-driver_, SIGKILL);
  ::waitpid(driver_, nullptr, 0);
}

void Browser::begin(int width) {
  const json::object options{
      {"args",
       {"--headless=new", "--no-sandbox", "--disable-gpu", "--user-data-dir=" + profile_.path().string()}},
      {"mobileEmulation", {{"deviceMetrics", {{"width", width}, {"height", 900}, {"pixelRatio", 1.0}}}}}};
  const json::object body{
      {"capabilities", {{"alwaysMatch", {{"browserName", "chrome"}, {"goog:chromeOptions", options}}}}}};
  const HTTPReply reply = client_.post("/session", {}, json::serialize(body));
  if (reply.status != 200) throw std::runtime_error("the browser does not start: " + reply.body);
  session_ = reply.json().at("value").at("sessionId").as_string();
}

json::value Browser::command(std::string_view method, const std::string& path, const json::object& body) {
  const HTTPReply reply =
      client_.request(method, "/session/" + session_ + path, {{"Content-Type", "application/json"}},
                      method == "POST" ? json::serialize(body) : std::string());
  if (reply.status != 200) throw std::runtime_error("the browser refuses " + path + ": " + reply.body);
  return reply.json().at("value");
}

void Browser::open(const std::string& url) { command("POST", "/url", {{"url", url}}); }

std::string Browser::element(const std::string& selector) {
  const json::value found = command("POST", "/element", {{"using", "css selector"}, {"value", selector}});
  return std::string(found.as_object().begin()->value().as_string());
}

void Browser::click(const std::string& selector) {
  command("POST", "/element/" + element(selector) + "/click");
}

std::string Browser::title() { return std::string(command("GET", "/title").as_string()); }

std::string Browser::text(const std::string& selector) {
  return std::string(command("GET", "/element/" + element(selector) + "/text").as_string());
}

bool Browser::waitForText(const std::string& selector, const std::string& wanted) {
  constexpr std::chrono::seconds limit{10};
  constexpr std::chrono::milliseconds look{20};
  for (const auto deadline = StreamClient::Clock::now() + limit; StreamClient::Clock::now() < deadline;) {
    try {
      if (text(selector) == wanted) return true;
    } catch (const std::runtime_error&) {
      // Between two pages.
    }
    std::this_thread::sleep_for(look);
  }
  return false;
}

json::value Browser::run(const std::string& script) {
  return command("POST", "/execute/sync", {{"script", script}, {"args", json::array{}}});
}

} // namespace tolvera::test
