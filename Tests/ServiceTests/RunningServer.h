#pragma once

#include "TolveraService/Server.h"

#include "Harness/TemporaryDirectory.h"

#include <thread>

namespace tolvera::test {

// The service in this process, on a free port and with accounts of its own.
class RunningServer {
 public:
  explicit RunningServer(std::size_t streams = 2) : server_(settings(directory_.path(), streams)) {
    thread_ = std::thread([this] { server_.run(); });
  }
  ~RunningServer() {
    server_.stop();
    thread_.join();
  }
  service::Server& operator*() { return server_; }
  service::Server* operator->() { return &server_; }
  [[nodiscard]] std::filesystem::path stateDirectory() const { return directory_.path() / "state"; }

 private:
  static service::Server::Settings settings(const std::filesystem::path& directory, std::size_t streams) {
    service::Server::Settings settings;
    settings.stateDirectory = directory / "state";
    settings.streams = streams;
    return settings;
  }

  TemporaryDirectory directory_;
  service::Server server_;
  std::thread thread_;
};

} // namespace tolvera::test
