#include "TolveraService/Server.h"

#include "TolveraService/Http/HTTPConnection.h"
#include "TolveraService/PeerUser.h"

#include "Async/Log.h"
#include "Async/Spawn.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>

#include <unistd.h>

#include <stdexcept>

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

} // namespace

boost::json::object Server::about() const {
  const auto languages = engine_->languages();
  return {{"name", "tolvera-service"},
          {"version", TOLVERA_VERSION},
          {"engine", engine_->name()},
          {"soundGoesTo", engine_->sendsTo()},
          {"textGoesTo", translator_->sendsTo()},
          {"languages", boost::json::array(languages.begin(), languages.end())}};
}

Server::Server(const Settings& settings)
    : engine_(makeSpeechEngine(settings.engine)), accounts_(settings.stateDirectory),
      translator_(makeTranslator(settings.translator, settings.translationModes)),
      listening_(engine_->runs()), services_(std::make_shared<Services>(Services{accounts_,
                                                                                 *translator_,
                                                                                 *engine_,
                                                                                 speech_,
                                                                                 routes_,
                                                                                 clock_,
                                                                                 blocking_.get_executor(),
                                                                                 warming_.get_executor(),
                                                                                 listening_.get_executor(),
                                                                                 settings.silence,
                                                                                 {},
                                                                                 {},
                                                                                 {}})),
      acceptor_(listenOn(context_, settings.port, settings.takesNextPort ? mostNextPorts : 0)),
      servesAllUsers_(settings.servesAllUsers) {
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

std::uint16_t Server::port() const { return acceptor_.local_endpoint().port(); }

void Server::run() {
  spawn(context_.get_executor(), "accepting connections", accept());
  auto work = asio::make_work_guard(context_);
  context_.run();
}

void Server::stop() {
  asio::post(context_, [this] {
    if (!acceptor_.is_open()) return;
    acceptor_.close();
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

Task<void> Server::accept() {
  while (acceptor_.is_open()) {
    boost::system::error_code error;
    auto withError = asio::redirect_error(use_awaitable, error);
    tcp::socket socket = co_await acceptor_.async_accept(withError);
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
    socket.set_option(tcp::no_delay(true), ignored);
    spawn(context_.get_executor(), "serving a connection", serve(std::move(socket), *user));
  }
}

// Every user of the machine reaches a port of the loopback interface. Root can read everything anyway.
std::optional<uid_t> Server::admitted(const tcp::socket& socket) const {
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

Task<void> Server::serve(tcp::socket socket, uid_t user) {
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
