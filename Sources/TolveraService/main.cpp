#include "TolveraService/AddressFile.h"
#include "TolveraService/Models/ModelCommands.h"
#include "TolveraService/Options.h"
#include "TolveraService/Server.h"
#include "TolveraService/ServiceManager.h"

#include "Async/CoreDumps.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <chrono>
#include <cstdio>
#include <exception>
#include <optional>
#include <string_view>
#include <thread>

namespace {

namespace service = tolvera::service;

// The manager's socket starts the service again.
constexpr std::chrono::minutes longestIdle{10};

void serve(const service::Options& options) {
  // Made first, so that a signal ends the service while its decoders load too.
  boost::asio::io_context signalContext;
  boost::asio::signal_set signals(signalContext, SIGINT, SIGTERM);
  service::Server::Settings settings;
  std::optional<service::AddressFile> address;
  if (options.port) {
    settings.port = *options.port;
  } else {
    address.emplace(options.servesAllUsers);
    settings.port = service::Options::defaultPort;
    settings.takesNextPort = address->isClaimed();
  }
  settings.stateDirectory = options.stateDirectory;
  settings.engine = options.engine;
  settings.servesAllUsers = options.servesAllUsers;
  settings.translator = options.translator;
  settings.sockets = service::manager::listeningSockets();
  if (!settings.sockets.empty()) settings.longestIdle = longestIdle;
  service::Server server(settings);
  if (address) address->write(server.port());
  const service::Destinations destinations = server.destinations();
  for (const auto& [what, place] : {std::pair{"sound", destinations.sound}, {"text", destinations.text}})
    if (!place.empty()) std::fprintf(stderr, "tolvera-service: %s goes to %s\n", what, place.c_str());
  signals.async_wait([&server](const boost::system::error_code& error, int) {
    if (!error) server.stop();
  });
  std::thread waiting([&signalContext] { signalContext.run(); });
  std::printf("tolvera-service: listening on 127.0.0.1:%u\n", static_cast<unsigned>(server.port()));
  std::fflush(stdout);
  server.run();
  signalContext.stop();
  waiting.join();
}

} // namespace

int main(int count, char** values) {
  tolvera::writeNoCoreDumps();
  if (count > 1 && std::string_view(values[1]) == "models")
    return service::runModelCommand({values + 2, values + count});
  try {
    const service::Options options = service::parseOptions({values + 1, values + count});
    if (options.action == service::Options::Action::help) {
      std::fputs(service::Options::usage(), stdout);
    } else if (options.action == service::Options::Action::version) {
      std::puts("tolvera-service " TOLVERA_VERSION);
    } else {
      serve(options);
    }
    return 0;
  } catch (const service::OptionError& error) {
    std::fprintf(stderr, "tolvera-service: %s\n%s", error.what(), service::Options::usage());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tolvera-service: %s\n", error.what());
    return 1;
  }
}
