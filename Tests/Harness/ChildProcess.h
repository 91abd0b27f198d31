#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace tolvera::test {

// A program in a process group of its own. The group is killed with this object. The program is killed when
// the test ends, also if the test crashes.
class ChildProcess {
 public:
  // Standard output and error go to `log` (appended; "/dev/null" by default). Throws std::runtime_error.
  explicit ChildProcess(std::vector<std::string> command, const std::string& log = "/dev/null");
  ~ChildProcess() { kill(); }
  ChildProcess(ChildProcess&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }
  ChildProcess& operator=(ChildProcess other) noexcept {
    std::swap(pid_, other.pid_);
    return *this;
  }

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] bool running();
  // Waits for its end. Gives its exit status, 128 + signal, or -1 when `limit` has passed.
  int wait(std::chrono::milliseconds limit);
  void kill(); // SIGKILL, and waits

 private:
  pid_t pid_ = -1; // -1 after its end
  int status_ = -1;
};

// Runs a program to its end and gives its standard output. Throws if it fails or takes over 10 s.
std::string outputOf(std::vector<std::string> command);

} // namespace tolvera::test
