#include "TolveraService/Engine/ApertiumPipeline.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace tolvera::service {

namespace {

using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr milliseconds coldLimit{8000}; // loading the largest dictionaries, on a busy machine
constexpr milliseconds warmLimit{2000};
constexpr std::size_t longestLine = 8000;

// Closes a sentence and forces the engines to let go of it.
constexpr std::string_view trailer = ".[][\n]";

std::string escaped(std::string_view line) {
  std::string result;
  for (const char c : line.substr(0, longestLine)) {
    if (c == '\0' || c == '\n' || c == '\r') {
      result += ' ';
      continue;
    }
    if (std::string_view("^$/<>{}\\*@#+~[]").find(c) != std::string_view::npos) result += '\\';
    result += c;
  }
  return result;
}

std::string unescaped(std::string_view line) {
  std::string result;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size()) ++i;
    result += line[i];
  }
  return result;
}

milliseconds until(SteadyClock::time_point deadline) {
  const auto left = std::chrono::duration_cast<milliseconds>(deadline - SteadyClock::now());
  return left.count() > 0 ? left : milliseconds{0};
}

bool wait(int descriptor, short events, SteadyClock::time_point deadline) {
  for (;;) {
    pollfd entry{descriptor, events, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(until(deadline).count()));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

// Between fork and exec: only calls that are safe in the child of a program with threads.
[[noreturn]] void becomeStage(int input, int output, int errors, pid_t parent, const char* const* arguments,
                              const char* const* environment) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(127);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  ::close_range(STDERR_FILENO + 1, ~0U, 0);
  ::signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execve(arguments[0], const_cast<char* const*>(arguments), const_cast<char* const*>(environment));
  ::_exit(127);
}

} // namespace

ApertiumPipeline::~ApertiumPipeline() { stop(); }

std::optional<std::string> ApertiumPipeline::translate(std::string_view line) {
  std::scoped_lock lock(mutex_);
  if (!processes_.empty())
    if (auto answer = exchange(line, warmLimit)) return answer;
  stop();
  if (!start()) return std::nullopt;
  auto answer = exchange(line, coldLimit);
  if (!answer) stop();
  return answer;
}

bool ApertiumPipeline::start() {
  std::array<int, 2> ends{};
  // A socket and not a pipe: writing to a dead program must not raise a signal.
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
  input_ = ends[0];
  int upstream = ends[1];
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  const pid_t parent = ::getpid();
  const std::array<const char*, 2> environment = {"LC_ALL=C.UTF-8", nullptr};
  bool started = nowhere >= 0;
  for (const auto& stage : stages_) {
    std::array<int, 2> pipe{};
    if (!started || ::pipe2(pipe.data(), O_CLOEXEC) != 0) {
      started = false;
      break;
    }
    std::vector<const char*> arguments;
    arguments.reserve(stage.size() + 1);
    for (const std::string& argument : stage) arguments.push_back(argument.c_str());
    arguments.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) becomeStage(upstream, pipe[1], nowhere, parent, arguments.data(), environment.data());
    ::close(upstream);
    ::close(pipe[1]);
    upstream = pipe[0];
    if (child < 0) {
      started = false;
      break;
    }
    processes_.push_back(child);
  }
  if (nowhere >= 0) ::close(nowhere);
  output_ = upstream;
  if (!started) stop();
  return started;
}

void ApertiumPipeline::stop() {
  for (int* descriptor : {&input_, &output_})
    if (const int open = std::exchange(*descriptor, -1); open >= 0) ::close(open);
  for (const pid_t process : processes_) ::kill(process, SIGKILL);
  for (const pid_t process : processes_)
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
  processes_.clear();
}

std::optional<std::string> ApertiumPipeline::exchange(std::string_view line, milliseconds limit) {
  const auto deadline = SteadyClock::now() + limit;
  std::string request = escaped(line);
  request += trailer;
  request += '\0';
  for (std::string_view rest = request; !rest.empty();) {
    if (!wait(input_, POLLOUT, deadline)) return std::nullopt;
    const ssize_t sent = ::send(input_, rest.data(), rest.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) return std::nullopt;
    if (sent > 0) rest.remove_prefix(static_cast<std::size_t>(sent));
  }
  std::string reply;
  while (reply.find('\0') == std::string::npos) {
    std::array<char, 4096> buffer{};
    if (!wait(output_, POLLIN, deadline)) return std::nullopt;
    const ssize_t got = ::read(output_, buffer.data(), buffer.size());
    if (got == 0 || (got < 0 && errno != EINTR)) return std::nullopt;
    if (got > 0) reply.append(buffer.data(), static_cast<std::size_t>(got));
  }
  reply.resize(reply.find('\0')); // programs that end send more of them
  if (const std::size_t end = reply.rfind("[]["); end != std::string::npos) reply.resize(end);
  while (!reply.empty() && (reply.back() == '.' || reply.back() == ' ')) reply.pop_back();
  // A program that has died lets the others answer with nothing.
  const bool hadWords = line.find_first_not_of(" .\n\t") != std::string_view::npos;
  if (hadWords && reply.find_first_not_of(" \n\t") == std::string::npos) return std::nullopt;
  return unescaped(reply);
}

} // namespace tolvera::service
