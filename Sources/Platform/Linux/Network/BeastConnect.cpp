#include "Platform/Linux/Network/BeastConnect.h"

#include "Async/Gate.h"
#include "Async/Log.h"
#include "Platform/Linux/Network/BeastErrors.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/system/system_error.hpp>

#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/un.h>

#include <algorithm>
#include <charconv>

namespace tolvera::adapters {

namespace {

using boost::asio::ip::tcp;
using ErrorCode = boost::system::error_code;
using Steady = std::chrono::steady_clock;
namespace ssl = boost::asio::ssl;

Task<void> throwIfCancelled() {
  const auto state = co_await boost::asio::this_coro::cancellation_state;
  if (state.cancelled() == boost::asio::cancellation_type::none) co_return;
  throw boost::system::system_error(boost::asio::error::operation_aborted);
}

// The outcome of an operation that one coroutine waits for and may abandon.
template<typename Value>
struct Outcome {
  Gate gate; // opens at the end
  std::optional<Value> value;
  ErrorCode error;
  bool timedOut = false;
  bool ended = false;

  void end() {
    if (!std::exchange(ended, true)) gate.open();
  }
};

template<typename Value>
Task<void> wait(std::shared_ptr<Outcome<Value>> outcome) {
  co_await outcome->gate.pass();
  co_await throwIfCancelled();
}

using Addresses = std::vector<tcp::endpoint>;

// The system's lookup cannot be interrupted. An abandoned one ends by itself on the resolver's thread.
Task<Addresses> resolve(Endpoint endpoint, Duration timeout) {
  ErrorCode notNumeric;
  const auto numeric = boost::asio::ip::make_address(endpoint.host, notNumeric);
  if (!notNumeric) co_return Addresses{tcp::endpoint(numeric, endpoint.port)};

  const auto executor = co_await boost::asio::this_coro::executor;
  auto outcome = std::make_shared<Outcome<Addresses>>();
  tcp::resolver resolver(executor);
  auto found = [outcome](ErrorCode error, const tcp::resolver::results_type& results) {
    outcome->error = error;
    if (!outcome->ended) outcome->value.emplace(results.begin(), results.end());
    outcome->end();
  };
  resolver.async_resolve(endpoint.host, std::to_string(endpoint.port), tcp::resolver::numeric_service,
                         std::move(found));
  const Deadline deadline(executor, timeout, [outcome] {
    outcome->timedOut = true;
    outcome->end();
  });
  co_await wait(outcome);
  if (outcome->timedOut) {
    throw transportError(TransportError::timedOut, "Looking up " + endpoint.host + " took too long");
  }
  if (outcome->error == boost::asio::error::host_not_found || outcome->error == boost::asio::error::no_data) {
    throw transportError(TransportError::hostNotFound, "There is no host named " + endpoint.host);
  }
  if (outcome->error) {
    throw transportError(TransportError::hostNotFound,
                         "Could not look up " + endpoint.host + ": " + outcome->error.message());
  }
  co_return std::move(*outcome->value);
}

// Alternates the address families, beginning with the one that the system put first.
Addresses interleaved(const Addresses& addresses) {
  Addresses preferred;
  Addresses others;
  for (const auto& address : addresses) {
    (address.protocol() == addresses.front().protocol() ? preferred : others).push_back(address);
  }
  Addresses ordered;
  for (std::size_t i = 0; i < std::max(preferred.size(), others.size()); ++i) {
    if (i < preferred.size()) ordered.push_back(preferred[i]);
    if (i < others.size()) ordered.push_back(others[i]);
  }
  return ordered;
}

// Tries the addresses one after the other without waiting for the earlier ones to fail. The first that
// answers wins, and the rest are dropped.
class ConnectRace : public std::enable_shared_from_this<ConnectRace> {
 public:
  ConnectRace(const Executor& executor, Addresses addresses, Duration stagger)
      : outcome(std::make_shared<Outcome<tcp::socket>>()), executor_(executor),
        addresses_(std::move(addresses)), stagger_(stagger), timer_(executor) {}

  const std::shared_ptr<Outcome<tcp::socket>> outcome;

  void startNext() {
    if (outcome->ended || next_ == addresses_.size()) return;
    auto socket = std::make_shared<tcp::socket>(executor_);
    sockets_.push_back(socket);
    ++pending_;
    auto answered = [self = shared_from_this(), socket](ErrorCode error) { self->answered(*socket, error); };
    socket->async_connect(addresses_[next_++], std::move(answered));
    timer_.expires_after(stagger_);
    timer_.async_wait([self = shared_from_this()](ErrorCode error) {
      if (!error) self->startNext();
    });
  }

  void stop() {
    timer_.cancel();
    for (const auto& socket : sockets_) {
      ErrorCode ignored;
      socket->close(ignored);
    }
    sockets_.clear();
    outcome->end();
  }

 private:
  void answered(tcp::socket& socket, ErrorCode error) {
    --pending_;
    if (outcome->ended) return;
    if (!error) {
      outcome->value.emplace(std::move(socket));
      stop();
      return;
    }
    // The error of an address family without a route on this machine tells little about the host.
    const bool uninformative = outcome->error == boost::asio::error::network_unreachable ||
                               outcome->error == boost::asio::error::host_unreachable;
    if (!outcome->error || uninformative) outcome->error = error;
    if (next_ < addresses_.size()) {
      startNext();
    } else if (pending_ == 0) {
      stop();
    }
  }

  Executor executor_;
  Addresses addresses_;
  Duration stagger_;
  boost::asio::steady_timer timer_;
  std::vector<std::shared_ptr<tcp::socket>> sockets_;
  std::size_t next_ = 0;
  std::size_t pending_ = 0;
};

Task<tcp::socket> connect(Endpoint endpoint, Addresses addresses, Duration timeout, Duration stagger) {
  const auto executor = co_await boost::asio::this_coro::executor;
  auto race = std::make_shared<ConnectRace>(executor, interleaved(addresses), stagger);
  struct StopRace {
    std::shared_ptr<ConnectRace> race;
    ~StopRace() { race->stop(); }
  } const stopAtTheEnd{race};
  const Deadline deadline(executor, timeout, [race] {
    race->outcome->timedOut = true;
    race->stop();
  });
  race->startNext();
  co_await wait(race->outcome);
  auto& outcome = *race->outcome;
  if (outcome.value) co_return std::move(*outcome.value);
  if (outcome.timedOut) throw noAnswer(endpoint.where(), timeout);
  throw transportError(TransportError::cannotConnect,
                       "Could not connect to " + endpoint.where() + ": " + outcome.error.message());
}

void setOption(tcp::socket& socket, int level, int name, int value) {
  ::setsockopt(socket.native_handle(), level, name, &value, sizeof value); // best effort
}

void configure(tcp::socket& socket, const BeastOptions& options) {
  using std::chrono::duration_cast;
  const auto unacknowledged = duration_cast<std::chrono::milliseconds>(options.unacknowledged);
  setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, static_cast<int>(options.keepAliveIdle.count()));
  setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, static_cast<int>(options.keepAliveInterval.count()));
  setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, options.keepAliveProbes);
  setOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(unacknowledged.count()));
}

// Names the peer in the handshake, and the host that its certificate must be valid for.
void expectPeer(SSL* tls, const std::string& host) {
  ErrorCode notNumeric;
  boost::asio::ip::make_address(host, notNumeric);
  SSL_set_verify(tls, SSL_VERIFY_PEER, nullptr);
  auto* wanted = SSL_get0_param(tls);
  X509_VERIFY_PARAM_set_hostflags(wanted, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  if (notNumeric) {
    const auto name = host.ends_with('.') ? host.substr(0, host.size() - 1) : host;
    SSL_set_tlsext_host_name(tls, name.c_str());
    X509_VERIFY_PARAM_set1_host(wanted, name.c_str(), name.size());
  } else {
    X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str());
  }
}

platform::PlatformError tlsFailure(SSL* tls, const Endpoint& endpoint, ErrorCode error) {
  const auto verdict = SSL_get_verify_result(tls);
  switch (verdict) {
  case X509_V_OK:
    break;
  case X509_V_ERR_HOSTNAME_MISMATCH:
  case X509_V_ERR_IP_ADDRESS_MISMATCH:
    return transportError(TransportError::notTrusted,
                          "The server's certificate is not valid for " + endpoint.host);
  case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
  case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
  case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
  case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
  case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    return transportError(TransportError::notTrusted,
                          "The certificate of " + endpoint.where() +
                              " comes from an authority that is not trusted here");
  case X509_V_ERR_CERT_HAS_EXPIRED:
    return transportError(TransportError::notTrusted,
                          "The certificate of " + endpoint.where() + " has expired");
  default:
    return transportError(TransportError::notTrusted,
                          "The certificate of " + endpoint.where() +
                              " was refused: " + X509_verify_cert_error_string(verdict));
  }
  if (error.category() == boost::asio::error::get_ssl_category()) {
    return transportError(TransportError::secureConnection,
                          "No secure connection to " + endpoint.where() + ": " + error.message());
  }
  return connectionLost(endpoint.where(), error);
}

// It is made or refused at once.
AnyStream::Socket connectLocally(const Executor& executor, const Endpoint& endpoint) {
  using Local = boost::asio::local::stream_protocol;
  Local::socket socket(executor);
  ErrorCode error = boost::asio::error::name_too_long;
  if (endpoint.socketPath.size() < sizeof(sockaddr_un::sun_path))
    socket.connect(Local::endpoint(endpoint.socketPath), error);
  if (!error) return socket;
  throw transportError(TransportError::cannotConnect,
                       "Could not connect to " + endpoint.where() + ": " + error.message());
}

Task<AnyStream> secured(Endpoint endpoint, AnyStream::Socket socket, std::shared_ptr<ssl::context> context,
                        Duration timeout) {
  auto stream = AnyStream::secure(std::move(socket), std::move(context));
  auto* tls = static_cast<SSL*>(stream.nativeTLS());
  expectPeer(tls, endpoint.host);
  const Deadline deadline(stream.get_executor(), timeout, [&stream] { stream.close(); });
  ErrorCode error;
  auto token = boost::asio::redirect_error(boost::asio::use_awaitable, error);
  co_await stream.handshake(ssl::stream_base::client, token);
  if (deadline.expired()) throw noAnswer(endpoint.where(), timeout);
  co_await throwIfCancelled();
  if (error) throw tlsFailure(tls, endpoint, error);
  co_return stream;
}

// The URL's own number wraps around beyond 65535.
std::optional<std::uint16_t> portOf(const platform::URL& url) {
  const std::string text(url.port());
  if (text.empty()) return std::nullopt;
  std::uint16_t port = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), port);
  if (parsed.ec == std::errc() && port != 0) return port;
  throw transportError(TransportError::badRequest, "There is no port " + text);
}

} // namespace

std::shared_ptr<ssl::context> BeastEnvironment::tlsContext() {
  const std::scoped_lock lock(mutex_);
  if (!tlsContext_) {
    auto context = std::make_shared<ssl::context>(ssl::context::tls_client);
    SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
    context->set_default_verify_paths();
    tlsContext_ = std::move(context);
  }
  return tlsContext_;
}

Endpoint Endpoint::of(const platform::URL& url) {
  const std::string scheme = url.scheme();
  const bool secure = scheme == "https" || scheme == "wss";
  if (!secure && scheme != "http" && scheme != "ws") {
    throw transportError(TransportError::badRequest, "The address does not begin with http or https");
  }
  Endpoint endpoint;
  endpoint.host = url.host_address();
  endpoint.secure = secure;
  const std::uint16_t usual = secure ? 443 : 80;
  endpoint.port = portOf(url).value_or(usual);
  endpoint.isDefaultPort = endpoint.port == usual;
  if (endpoint.host.empty()) throw transportError(TransportError::badRequest, "The address names no host");
  if (endpoint.host.front() == '/') endpoint.socketPath = std::exchange(endpoint.host, "localhost");
  return endpoint;
}

std::string Endpoint::where() const { return socketPath.empty() ? networkPlace() : socketPath; }

std::string Endpoint::networkPlace() const {
  const auto name = host.find(':') == std::string::npos ? host : "[" + host + "]";
  return name + ":" + std::to_string(port);
}

std::string Endpoint::hostHeader() const {
  auto full = networkPlace();
  return isDefaultPort ? full.substr(0, full.rfind(':')) : full;
}

std::string requestTarget(const platform::URL& url) {
  const std::string_view target = url.encoded_target();
  return target.starts_with('/') ? std::string(target) : "/" + std::string(target);
}

Deadline::Deadline(const Executor& executor, Duration duration, std::function<void()> onExpiry)
    : state_(std::make_shared<State>(State{boost::asio::steady_timer(executor), std::move(onExpiry)})) {
  state_->timer.expires_after(std::max(duration, Duration::zero()));
  state_->timer.async_wait([state = state_](ErrorCode error) {
    auto act = std::exchange(state->onExpiry, nullptr);
    if (error || !act) return;
    state->expired = true;
    act();
  });
}

Deadline::~Deadline() {
  state_->onExpiry = nullptr;
  state_->timer.cancel();
}

Task<AnyStream> openStream(Endpoint endpoint, std::shared_ptr<BeastEnvironment> environment, Duration limit) {
  if (!endpoint.socketPath.empty())
    co_return AnyStream::plain(connectLocally(co_await boost::asio::this_coro::executor, endpoint));
  const auto& options = environment->options;
  const auto end = Steady::now() + limit;
  auto within = [end](Duration timeout) { return std::min<Duration>(timeout, end - Steady::now()); };

  const Stopwatch resolving;
  auto addresses = co_await resolve(endpoint, within(options.resolveTimeout));
  log::trace(log::Category::network, "resolved ", endpoint.host, " to ", addresses.size(), " addresses in ",
             resolving.milliseconds(), " ms");
  const Stopwatch connecting;
  auto socket = co_await connect(endpoint, std::move(addresses), within(options.connectTimeout),
                                 options.connectStagger);
  configure(socket, options);
  log::trace(log::Category::network, "connected to ", endpoint.where(), " in ", connecting.milliseconds(),
             " ms");
  if (!endpoint.secure) co_return AnyStream::plain(std::move(socket));
  auto context = environment->tlsContext();
  const Stopwatch securing;
  auto stream = co_await secured(endpoint, std::move(socket), std::move(context), within(options.tlsTimeout));
  const std::string_view protocol = SSL_get_version(static_cast<const SSL*>(stream.nativeTLS()));
  log::trace(log::Category::network, protocol, " with ", endpoint.where(), " in ", securing.milliseconds(),
             " ms");
  co_return stream;
}

} // namespace tolvera::adapters
