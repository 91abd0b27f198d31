#include "TolveraService/Server.h"

#include "TolveraService/Http/HTTPConnection.h"
#include "TolveraService/PeerUser.h"
#include "TolveraService/ServiceManager.h"

#include "Async/Log.h"
#include "Async/Spawn.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>

#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace tolvera::service {

namespace asio = boost::asio;
using asio::use_awaitable;
using asio::ip::tcp;

namespace {

constexpr std::size_t connectionLimit = 256;
// Of one user where several are served, so that none of them shuts the others out.
constexpr std::size_t connectionLimitOfUser = 64;
constexpr int mostNextPorts = 20; // as many users of one machine
constexpr std::chrono::milliseconds farewell{1000};
constexpr std::chrono::milliseconds afterAcceptFailure{100};

tcp::acceptor listenOn(asio::io_context& context, std::uint16_t port, int nextPorts) {
  try {
    return {context, tcp::endpoint(asio::ip::address_v4::loopback(), port)};
  } catch (const boost::system::system_error& error) {
    if (error.code() == asio::error::address_in_use && nextPorts > 0)
      return listenOn(context, static_cast<std::uint16_t>(port + 1), nextPorts - 1);
    throw std::runtime_error("Cannot listen on 127.0.0.1:" + std::to_string(port) + ": " +
                             error.code().message());
  }
}

// Runs of a better engine, which may come, begin while runs of the present one go on.
std::size_t threadsToHear(const CurrentEngine& engine, const EngineChoice& choice) {
  return engine.get()->runs() + (engine.missing() ? runsOfWhisper(choice) : 0);
}

} // namespace

boost::json::object Server::about() const {
  const auto engine = engine_.get();
  const auto languages = engine->languages();
  return {{"name", "tolvera-service"},
          {"version", TOLVERA_VERSION},
          {"engine", engine->name()},
          {"soundGoesTo", engine->sendsTo()},
          {"textGoesTo", translator_->sendsTo()},
          {"languages", boost::json::array(languages.begin(), languages.end())}};
}

Server::Server(const Settings& settings)
    : engine_(settings.engine), accounts_(settings.stateDirectory),
      translator_(makeTranslator(settings.translator, settings.translationModes)),
      listening_(threadsToHear(engine_, settings.engine)),
      services_(std::make_shared<Services>(Services{accounts_,
                                                    *translator_,
                                                    engine_,
                                                    speech_,
                                                    routes_,
                                                    clock_,
                                                    blocking_.get_executor(),
                                                    warming_.get_executor(),
                                                    listening_.get_executor(),
                                                    settings.silence,
                                                    {},
                                                    {},
                                                    {},
                                                    {},
                                                    {}})),
      servesAllUsers_(settings.servesAllUsers), longestIdle_(settings.longestIdle) {
  auto loopback = listenOn(context_, settings.port, settings.takesNextPort ? mostNextPorts : 0);
  port_ = loopback.local_endpoint().port();
  acceptors_.emplace_back(std::move(loopback));
  using Local = asio::local::stream_protocol;
  for (const int socket : settings.sockets)
    acceptors_.emplace_back(Local::acceptor(context_, Local(), socket));
  services_->onRun = [this] {
    if (const auto model = engine_.missing()) offer_.make(*model);
  };
  services_->tellRuns = [this] { manager::tellStatus(status()); };
  // Programs know it by the port that it was meant to have.
  for (const std::uint16_t known : {port(), settings.port})
    for (const char* name : {"127.0.0.1:", "localhost:", "[::1]:"})
      services_->hostNames.push_back(name + std::to_string(known));
}

Server::~Server() {
  services_->connections.onEmpty = nullptr;
  services_->connections.endAll(); // the listeners wait for sound until they are told
  listening_.join();
  warming_.join();
  blocking_.join();
}

std::string Server::status() const {
  const std::size_t runs = services_->runs.size();
  return std::to_string(runs) + (runs == 1 ? " run; hears with " : " runs; hears with ") +
         engine_.get()->name() + "; pages at http://127.0.0.1:" + std::to_string(port_);
}

void Server::run() {
  for (Acceptor& acceptor : acceptors_)
    spawn(context_.get_executor(), "accepting connections", accept(acceptor));
  services_->connections.onEmpty = [this] { waitIdle(); };
  waitIdle();
  manager::tellStatus(status());
  manager::tellReady();
  auto work = asio::make_work_guard(context_);
  context_.run();
}

void Server::waitIdle() {
  if (!longestIdle_) return;
  idle_.expires_after(*longestIdle_);
  idle_.async_wait([this](const boost::system::error_code& error) {
    if (error || services_->connections.count() > 0) return;
    if (offer_.isInstalling()) return waitIdle();
    log::trace(log::Category::service, "ends after a long time without a connection");
    stop();
  });
}

void Server::stop() {
  asio::post(context_, [this] {
    if (std::exchange(isStopping_, true)) return;
    manager::tellStopping();
    idle_.cancel();
    for (Acceptor& acceptor : acceptors_) acceptor.close();
    spawn(context_.get_executor(), "stopping", stopSoon());
  });
}

Task<void> Server::stopSoon() {
  services_->connections.onEmpty = [this] { context_.stop(); };
  services_->connections.endAll();
  if (services_->connections.count() == 0) context_.stop();
  asio::steady_timer timer(context_, farewell);
  co_await timer.async_wait(use_awaitable);
  context_.stop();
}

Task<void> Server::accept(Acceptor& acceptor) {
  while (acceptor.is_open()) {
    boost::system::error_code error;
    auto withError = asio::redirect_error(use_awaitable, error);
    ClientSocket socket = co_await acceptor.async_accept(withError);
    if (error == asio::error::operation_aborted) co_return;
    if (error) { // no descriptor is free until another connection closes
      asio::steady_timer timer(context_, afterAcceptFailure);
      co_await timer.async_wait(use_awaitable);
      continue;
    }
    if (services_->connections.count() >= connectionLimit) continue; // closes it
    const auto user = admitted(socket);
    if (!user) continue;
    boost::system::error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored); // of a Unix socket it is no option
    spawn(context_.get_executor(), "serving a connection", serve(std::move(socket), *user));
  }
}

// Every user of the machine reaches a port of the loopback interface. Root can read everything anyway.
std::optional<uid_t> Server::admitted(ClientSocket& socket) const {
  const auto user = userAtOtherEnd(socket);
  const bool isMeant = user && (servesAllUsers_ || *user == ::geteuid() || *user == 0);
  if (!isMeant) {
    log::warn(log::Category::service, "a connection of another user is refused");
    return std::nullopt;
  }
  const auto open = connectionsOf_.find(*user);
  const bool isTooMany =
      servesAllUsers_ && open != connectionsOf_.end() && open->second >= connectionLimitOfUser;
  return isTooMany ? std::nullopt : user;
}

Task<void> Server::serve(ClientSocket socket, uid_t user) {
  struct Count {
    std::map<uid_t, std::size_t>& connections;
    uid_t user;
    ~Count() {
      if (--connections[user] == 0) connections.erase(user);
    }
  };
  ++connectionsOf_[user];
  const Count count{connectionsOf_, user};
  co_await serveConnection(std::move(socket), services_);
}

} // namespace tolvera::service
