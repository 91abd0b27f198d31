#pragma once

#include "TolveraService/ClientSocket.h"
#include "TolveraService/Engine/ApertiumTranslator.h"
#include "TolveraService/Engine/CurrentEngine.h"
#include "TolveraService/Engine/Translators.h"
#include "TolveraService/ModelOffer.h"
#include "TolveraService/Services.h"

#include "Async/SystemClock.h"

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::service {

// The local service: accounts, recognition and translation behind one port of the loopback interface, and
// behind the socket of the service manager if it started the service.
// `run` is the network thread; heavy work happens on threads of its own.
class Server {
 public:
  struct Settings {
    std::uint16_t port = 0;     // 0: any free one
    bool takesNextPort = false; // one of the next ones if the port is taken
    std::filesystem::path stateDirectory;
    std::filesystem::path translationModes = ApertiumTranslator::installedModes;
    EngineChoice engine;
    bool servesAllUsers = false;                                  // otherwise its own and root
    std::chrono::milliseconds silence = std::chrono::seconds(60); // after which a run lends its decoder
    std::optional<TranslatorChoice> translator = {};
    std::vector<int> sockets = {}; // listening Unix sockets; the server closes them
    std::optional<std::chrono::milliseconds> longestIdle = {}; // without a connection; then `run` ends
  };

  // Makes the speech engine, opens the accounts and listens. Throws std::exception with a text for the person
  // who starts the service.
  explicit Server(const Settings& settings);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  // What leaves this process, and where it goes.
  [[nodiscard]] Destinations destinations() const {
    return {engine_.get()->sendsTo(), translator_->sendsTo()};
  }

  // Serves until `stop`. Called once.
  void run();
  // Ends every connection and then `run`, within a second. Any thread, harmless to repeat.
  void stop();

 private:
  [[nodiscard]] boost::json::object about() const;
  using Acceptor = boost::asio::basic_socket_acceptor<boost::asio::generic::stream_protocol>;

  Task<void> accept(Acceptor& acceptor);
  // The user of a connection that is to be served; absent for one that is not.
  [[nodiscard]] std::optional<uid_t> admitted(ClientSocket& socket) const;
  Task<void> serve(ClientSocket socket, uid_t user);
  Task<void> stopSoon();
  // Begins to wait for `longestIdle` anew.
  void waitIdle();
  [[nodiscard]] std::string status() const;

  CurrentEngine engine_;
  AccountStore accounts_;
  std::unique_ptr<Translator> translator_;
  Speech speech_;
  Routes routes_{accounts_, speech_.voices(), [this] { return about(); }, destinations()};
  std::map<uid_t, std::size_t> connectionsOf_; // network thread
  boost::asio::io_context context_{1};
  SystemClock clock_{context_.get_executor()};
  boost::asio::thread_pool blocking_{1};
  boost::asio::thread_pool warming_{1};
  boost::asio::thread_pool listening_;
  std::shared_ptr<Services> services_;
  std::vector<Acceptor> acceptors_;
  std::uint16_t port_;
  const bool servesAllUsers_;
  const std::optional<std::chrono::milliseconds> longestIdle_;
  boost::asio::steady_timer idle_{context_};
  ModelOffer offer_;        // network thread
  bool isStopping_ = false; // network thread
};

} // namespace tolvera::service
