#include "Platform/Linux/Network/LocalService.h"

#include "Async/Log.h"
#include "Platform/Linux/Network/BeastErrors.h"
#include "Platform/Linux/Network/SocketOwner.h"

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>

namespace tolvera::adapters {

namespace {

namespace fs = std::filesystem;
using log::Category;

constexpr auto pause = std::chrono::milliseconds(50);
constexpr const char* unit = "tolvera-service.service";

bool isLoopback(const platform::URL& url) {
  const std::string host = url.host();
  return host == "127.0.0.1" || host == "localhost" || host == "[::1]";
}

// The port in a file that only its owner can have written; absent if there is no such file.
std::optional<std::uint16_t> portIn(const fs::path& path, uid_t owner) {
  struct stat facts{};
  if (::lstat(path.c_str(), &facts) != 0 || facts.st_uid != owner || !S_ISREG(facts.st_mode))
    return std::nullopt;
  std::ifstream file(path);
  unsigned port = 0;
  if (!(file >> port) || port == 0 || port > 65535) return std::nullopt;
  return static_cast<std::uint16_t>(port);
}

bool areAll(const std::vector<uid_t>& users, uid_t owner) {
  return std::ranges::all_of(users, [owner](uid_t user) { return user == owner; });
}

// True if this user, and no other, listens at the port.
bool isListenedAtBy(std::uint16_t port, uid_t owner) {
  const auto users = usersListeningAt(port);
  return !users.empty() && areAll(users, owner);
}

// Gives the process id of a program with its output dropped, or 0. The program ends with the thread that
// started it.
pid_t launch(const std::vector<std::string>& command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child != 0) return std::max<pid_t>(child, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != parent) ::_exit(127); // it has ended meanwhile
  const int nowhere = ::open("/dev/null", O_RDWR);
  ::dup2(nowhere, STDIN_FILENO);
  ::dup2(nowhere, STDOUT_FILENO);
  ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  ::setpgid(0, 0); // Ctrl-C is for the program alone: the service hears its goodbye
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execvp(words[0], words.data());
  ::_exit(127);
}

// A connection that is not made, for a reason that its user is told.
class RefusedWebSocketTask final : public platform::WebSocketTask {
 public:
  explicit RefusedWebSocketTask(std::string reason) : reason_(std::move(reason)) {}

  void resume() override {}
  Task<void> send(Message) override {
    fail();
    co_return;
  }
  Task<Message> receive() override {
    fail();
    co_return Message();
  }
  void cancel(std::uint16_t, std::string) override {}

 private:
  void fail() const { throw transportError(TransportError::otherUser, reason_); }

  std::string reason_;
};

} // namespace

LocalService::LocalService(const Executor& executor, Settings settings)
    : executor_(executor), settings_(std::move(settings)) {}

LocalService::~LocalService() {
  if (child_ == 0) return;
  ::kill(child_, SIGTERM);
  ::waitpid(child_, nullptr, 0);
}

fs::path LocalService::defaultAddressFile() {
  const char* const directory = std::getenv("XDG_RUNTIME_DIR");
  return directory != nullptr && directory[0] == '/' ? fs::path(directory) / "tolvera/service" : fs::path();
}

fs::path LocalService::programBeside() {
  std::error_code error;
  const fs::path own = fs::read_symlink("/proc/self/exe", error);
  const fs::path program = own.parent_path() / "tolvera-service";
  return !error && ::access(program.c_str(), X_OK) == 0 ? program : fs::path();
}

bool LocalService::isMeant(const platform::URL& url) const {
  return isLoopback(url) && url.port_number() == settings_.usualPort;
}

// Only the user can write into the directory of the first file, and only root into that of the second.
LocalService::Place LocalService::place() const {
  if (const auto port = portIn(settings_.addressFile, ::getuid())) return {*port, ::getuid()};
  if (const auto port = portIn(settings_.sharedAddressFile, 0); port && isListenedAtBy(*port, 0))
    return {*port, 0};
  return {settings_.usualPort, ::getuid()};
}

bool LocalService::isListening() const {
  const auto [port, owner] = place();
  return isListenedAtBy(port, owner);
}

fs::path LocalService::activationSocket() const {
  if (settings_.addressFile.empty()) return {};
  fs::path path = settings_.addressFile.parent_path() / "service.sock";
  struct stat facts{};
  const bool isOwn =
      ::lstat(path.c_str(), &facts) == 0 && S_ISSOCK(facts.st_mode) && facts.st_uid == ::getuid();
  return isOwn && isListenedAt(path) ? path : fs::path();
}

std::optional<std::string> LocalService::refusal() const {
  const auto [port, owner] = place();
  if (areAll(usersListeningAt(port), owner)) return std::nullopt;
  return "another user of this machine listens at 127.0.0.1:" + std::to_string(port) +
         ", so nothing is sent there";
}

platform::URL LocalService::located(platform::URL url) const {
  if (isMeant(url)) url.set_port_number(place().port);
  return url;
}

Task<platform::URL> LocalService::reached(platform::URL url) {
  if (!isMeant(url)) co_return url;
  if (!isListening() && activationSocket().empty()) {
    startSoon();
    boost::asio::steady_timer timer(executor_);
    while (!isListening() && mayStillCome()) {
      timer.expires_after(pause);
      co_await timer.async_wait(boost::asio::use_awaitable);
    }
    log::trace(Category::service, isListening() ? "listens at port " : "does not listen at port ",
               place().port);
  }
  co_return reachedNow(std::move(url));
}

platform::URL LocalService::reachedNow(platform::URL url) {
  if (!isMeant(url)) return url;
  if (!isListening()) {
    if (const fs::path socket = activationSocket(); !socket.empty()) {
      url.set_host(socket.string());
      return url;
    }
    startSoon();
  }
  if (const auto reason = refusal()) throw transportError(TransportError::otherUser, *reason);
  return located(std::move(url));
}

void LocalService::startSoon() {
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (isListening() || (lastStart_ && now < *lastStart_ + settings_.patience)) return;
  lastStart_ = now;
  didStart_ = start();
}

bool LocalService::mayStillCome() {
  const std::lock_guard lock(mutex_);
  return didStart_ && std::chrono::steady_clock::now() < *lastStart_ + settings_.patience;
}

bool LocalService::startByManager() const {
  const char* const directory = std::getenv("XDG_RUNTIME_DIR");
  if (!settings_.usesServiceManager || directory == nullptr) return false;
  if (!fs::exists(fs::path(directory) / "systemd/private")) return false;
  const pid_t child = launch({"systemctl", "--user", "--quiet", "--no-block", "start", unit});
  int status = 0;
  return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool LocalService::start() {
  if (startByManager()) {
    log::trace(Category::service, "started by the service manager");
    return true;
  }
  if (child_ > 0) ::waitpid(child_, nullptr, WNOHANG);
  if (settings_.program.empty()) {
    log::warn(Category::service, "does not run, and there is no program to start");
    return false;
  }
  child_ = launch({settings_.program.string()});
  log::trace(Category::service, "started as process ", child_);
  return child_ > 0;
}

std::shared_ptr<platform::WebSocketTask> LocalServiceURLSession::webSocketTask(const platform::URL& url,
                                                                               const Executor& serial) {
  // A connection cannot wait here: one that comes too early fails, and the next one finds the service.
  try {
    return inner_.webSocketTask(service_.reachedNow(url), serial);
  } catch (const platform::PlatformError& refused) {
    return std::make_shared<RefusedWebSocketTask>(refused.localizedDescription());
  }
}

Task<platform::HTTPResponse> LocalServiceURLSession::data(platform::HTTPRequest request) {
  request.url = co_await service_.reached(std::move(request.url));
  co_return co_await inner_.data(std::move(request));
}

} // namespace tolvera::adapters
