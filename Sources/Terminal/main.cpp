#include "Async/CoreDumps.h"
#include "Async/Log.h"
#include "Async/Printable.h"
#include "Platform/Linux/LinuxPlatform.h"
#include "Terminal/CaptionPrinter.h"
#include "Tolvera/Model/MachineCheck.h"
#include "Tolvera/Model/NoWindows.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

// How long a failure may stand before the terminal gives the run up. A session that survives a failure
// changes the phase sooner.
constexpr auto failureGrace = 10s;
// How long the end of a run may take that was never live: it has no captions to wait for.
constexpr auto endGrace = 1500ms;

// Starts one run and prints it until it is over. The main loop ends by itself when no work is left.
class TerminalRun {
 public:
  TerminalRun(adapters::LinuxPlatform& system, boost::asio::io_context& main)
      : system_(system), main_(main), clock_(system.platform().clock), signals_(main, SIGINT, SIGTERM),
        model_(AppState::make(system.platform(), noWindows())),
        printer_(*model_, main.get_executor(), stdout) {
    QObject::connect(model_.get(), &AppState::phaseChanged, &printer_, [this] { handlePhase(); });
  }

  int run() {
    waitForSignal();
    if (log::isComplete()) {
      checkTask_ =
          spawn(main_.get_executor(), "check", traceMachine(system_.platform(), system_.machineFacts()));
    }
    startTask_ = spawn(main_.get_executor(), "start", start());
    main_.run();
    return exitStatus_;
  }

 private:
  Task<void> start() {
    co_await model_->bootstrap();
    if (quitting_) co_return;
    co_await model_->start();
    if (!model_->phase().is(Phase::Kind::failed)) co_return;
    std::fputs("The run did not begin. tolvera-terminal --check says what is missing.\n", stderr);
    quit(EXIT_FAILURE);
  }

  void waitForSignal() {
    signals_.async_wait([this](const boost::system::error_code& error, int) {
      if (error) return;
      if (quitting_) std::_Exit(EXIT_FAILURE); // a second signal ends it without a goodbye
      waitForSignal(); // first, since quitting may be over at once and cancels the wait
      quit(EXIT_SUCCESS);
    });
  }

  void handlePhase() {
    failureTimer_.cancel();
    if (model_->phase().is(Phase::Kind::idle)) end();
    if (model_->phase().is(Phase::Kind::live)) wasLive_ = true;
    if (model_->phase().is(Phase::Kind::failed)) {
      failureTimer_ = spawn(main_.get_executor(), "failure", giveUp());
    }
  }

  Task<void> giveUp() {
    co_await clock_.sleep(failureGrace);
    if (model_->phase().is(Phase::Kind::failed)) quit(EXIT_FAILURE);
  }

  void quit(int status) {
    quitting_ = true;
    exitStatus_ = status;
    if (!wasLive_) hurryTask_ = spawn(main_.get_executor(), "hurry", leave());
    if (model_->phase().is(Phase::Kind::idle)) return end();
    stopTask_ = spawn(main_.get_executor(), "stop", model_, model_->stop());
  }

  Task<void> leave() {
    co_await clock_.sleep(endGrace);
    std::fflush(stdout);
    std::_Exit(exitStatus_);
  }

  // The run is over. The last read of the account is not waited for.
  void end() {
    signals_.cancel();
    checkTask_.cancel();
    startTask_.cancel();
    stopTask_.cancel();
    hurryTask_.cancel();
  }

  adapters::LinuxPlatform& system_;
  boost::asio::io_context& main_;
  Clock& clock_;
  boost::asio::signal_set signals_;
  std::shared_ptr<AppState> model_;
  CaptionPrinter printer_;
  TaskHandle checkTask_;
  TaskHandle startTask_;
  TaskHandle stopTask_;
  TaskHandle hurryTask_;
  TaskHandle failureTimer_;
  bool wasLive_ = false;
  bool quitting_ = false;
  int exitStatus_ = EXIT_SUCCESS;
};

// Prints what works on this machine. Fails if a run could not.
Task<void> printCheck(platform::Platform& platform, platform::MachineFacts facts, int& status) {
  for (const CheckedThing& thing : co_await checkMachine(platform, std::move(facts))) {
    std::printf("%-8s %-15s %s\n", thing.works ? "ok" : "missing", thing.name.c_str(),
                printable(thing.text).c_str());
    if (!thing.works) status = EXIT_FAILURE;
  }
}

int check(adapters::LinuxPlatform& platform, boost::asio::io_context& main) {
  int status = EXIT_SUCCESS;
  const auto task =
      spawn(main.get_executor(), "check", printCheck(platform.platform(), platform.machineFacts(), status));
  main.run();
  return status;
}

int usage(std::FILE* to, int status) {
  std::fputs(
      "usage: tolvera-terminal [--check | --version]\n\n"
      "Translates what is played or spoken and prints the captions. Ctrl-C stops politely.\n"
      "What to capture and into which language is taken from the preferences, as in the program.\n"
      "--check prints what works on this machine and what does not; its status is 1 if a run cannot work.\n",
      to);
  return status;
}

} // namespace
} // namespace tolvera

int main(int argc, char** argv) {
  tolvera::writeNoCoreDumps();
  if (argc == 2 && std::string_view(argv[1]) == "--help") return tolvera::usage(stdout, EXIT_SUCCESS);
  const bool checks = argc == 2 && std::string_view(argv[1]) == "--check";
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::puts("tolvera-terminal " TOLVERA_VERSION);
    return EXIT_SUCCESS;
  }
  if (argc > 1 && !checks) return tolvera::usage(stderr, 2);

  boost::asio::io_context main;
  tolvera::adapters::LinuxPlatform platform(main.get_executor());
  if (checks) return tolvera::check(platform, main);
  return tolvera::TerminalRun(platform, main).run();
}
