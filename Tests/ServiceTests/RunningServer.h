#pragma once

#include "TolveraService/Server.h"

#include "Harness/TemporaryDirectory.h"

#include <optional>
#include <string>
#include <thread>
#include <utility>

namespace tolvera::test {

// The service in this process, on a free port and with accounts of its own. PocketSphinx is always there, and
// understands what the tests say.
class RunningServer {
 public:
  explicit RunningServer(std::size_t streams, service::EngineChoice engine = {"pocketsphinx"},
                         bool servesAllUsers = false,
                         std::chrono::milliseconds silence = std::chrono::seconds(60),
                         std::optional<service::TranslatorChoice> translator = {})
      : server_({.stateDirectory = stateDirectory(),
                 .engine = {std::move(engine.name), streams, std::move(engine.server)},
                 .servesAllUsers = servesAllUsers,
                 .silence = silence,
                 .translator = std::move(translator)}) {}
  ~RunningServer() {
    server_.stop();
    thread_.join();
  }
  service::Server* operator->() { return &server_; }
  [[nodiscard]] std::filesystem::path stateDirectory() const { return directory_ / "state"; }

 private:
  TemporaryDirectory directory_;
  service::Server server_;
  std::thread thread_{[this] { server_.run(); }};
};

} // namespace tolvera::test
