#pragma once

#include "TolveraService/Server.h"

#include "Harness/TemporaryDirectory.h"

#include <string>
#include <thread>

namespace tolvera::test {

// The service in this process, on a free port and with accounts of its own.
class RunningServer {
 public:
  // With PocketSphinx unless told otherwise: it is always there, and understands what the tests say.
  explicit RunningServer(std::size_t streams = 2, const std::string& engine = "pocketsphinx")
      : server_([&] {
          service::Server::Settings settings;
          settings.stateDirectory = stateDirectory();
          settings.engine = {engine, streams};
          return settings;
        }()) {}
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
