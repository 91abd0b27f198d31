#include "Tolvera/App/UnixSignals.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace tolvera {

namespace {

// All that a signal handler can reach. Each signal is a byte in the pipe.
std::array<int, 2> pipeEnds{-1, -1};

void note(int) {
  const int error = errno;
  const char byte = 0;
  [[maybe_unused]] const auto written = write(pipeEnds[1], &byte, 1);
  errno = error;
}

void handle(void (*handler)(int)) {
  struct sigaction action{};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

} // namespace

UnixSignals::UnixSignals(QObject* parent) : QObject(parent) {
  if (pipe2(pipeEnds.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe for signals");
  }
  notifier_ = std::make_unique<QSocketNotifier>(pipeEnds[0], QSocketNotifier::Read);
  connect(notifier_.get(), &QSocketNotifier::activated, this, &UnixSignals::drain);
  handle(note);
}

UnixSignals::~UnixSignals() {
  handle(SIG_DFL);
  notifier_.reset();
  for (int& end : pipeEnds) close(std::exchange(end, -1));
}

void UnixSignals::drain() {
  char byte = 0;
  while (read(pipeEnds[0], &byte, 1) == 1) Q_EMIT received();
}

} // namespace tolvera
