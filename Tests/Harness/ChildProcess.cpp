#include "Harness/ChildProcess.h"

#include "Harness/Eventually.h"
#include "Harness/TemporaryDirectory.h"

#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tolvera::test {

ChildProcess::ChildProcess(std::vector<std::string> command, const std::string& log) {
  std::vector<char*> arguments;
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  const pid_t parent = ::getpid();
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  ::setpgid(pid_, pid_); // on both sides, so that it holds at once
  if (pid_ > 0) return;
  // The child may only make calls that are safe after a fork of a process with several threads.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(127);
  const int input = ::open("/dev/null", O_RDONLY);
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  ::dup2(input, 0);
  ::dup2(output, 1);
  ::dup2(output, 2);
  ::execvp(arguments[0], arguments.data());
  ::_exit(127);
}

bool ChildProcess::running() {
  if (pid_ < 0) return false;
  int status = 0;
  if (::waitpid(pid_, &status, WNOHANG) != pid_) return true;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  pid_ = -1;
  return false;
}

int ChildProcess::wait(std::chrono::milliseconds limit) {
  return eventually([this] { return !running(); }, limit) ? status_ : -1;
}

void ChildProcess::kill() {
  if (pid_ < 0) return;
  ::kill(-pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string outputOf(std::vector<std::string> command) {
  const TemporaryDirectory directory;
  const std::string log = directory / "output";
  const std::string name = command.front();
  const int status = ChildProcess(std::move(command), log).wait(std::chrono::seconds(10));
  std::ifstream file(log);
  std::string output(std::istreambuf_iterator<char>(file), {});
  if (status != 0) throw std::runtime_error(name + " failed: " + output);
  return output;
}

} // namespace tolvera::test
