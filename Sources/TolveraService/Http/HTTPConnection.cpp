#include "TolveraService/Http/HTTPConnection.h"

#include "TolveraService/Stream/StreamConnection.h"

#include "Async/Log.h"
#include "Async/On.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <algorithm>
#include <chrono>

namespace tolvera::service {

namespace beast = boost::beast;
namespace http = beast::http;
using boost::asio::use_awaitable;

namespace {

constexpr std::uint32_t headerLimit = 8 * 1024;
constexpr std::uint64_t bodyLimit = 16384;
constexpr std::chrono::seconds waitLimit{15};

constexpr Wording unreadable{"", "This is not a request that the service reads."};
constexpr Wording foreign{"本地服务只回应本机的请求。",
                          "The local service answers requests of this machine alone."};

using Message = http::request<http::string_body>;

std::string text(beast::string_view value) { return {value.data(), value.size()}; }

Request requestOf(const Message& message) {
  return {text(message.method_string()),
          text(message.target()),
          text(message[http::field::host]),
          text(message[http::field::authorization]),
          text(message[http::field::content_type]),
          text(message[http::field::accept_language]),
          text(message[http::field::cookie]),
          message.body()};
}

// True for a request to another name than the service's own: somebody may have pointed that name at this
// machine. True also for one that a page of another site sends.
bool isForeign(const Message& message, const std::vector<std::string>& hostNames) {
  const auto ours = [&](beast::string_view host) {
    return std::any_of(hostNames.begin(), hostNames.end(),
                       [&](const std::string& name) { return beast::iequals(name, host); });
  };
  if (message.count(http::field::host) != 1 || !ours(message[http::field::host])) return true;
  beast::string_view origin = message[http::field::origin];
  if (origin.empty()) return false;
  constexpr beast::string_view scheme = "http://";
  return !origin.starts_with(scheme) || !ours(origin.substr(scheme.size()));
}

// True for what a page of another site loads. It gets no answer at all: any answer would tell the page that
// the service runs. A link on such a page may be followed, for the page does not see what comes.
bool isSubresourceOfOtherSite(const Message& message) {
  const beast::string_view site = message["Sec-Fetch-Site"];
  if (site.empty() || site == "none" || site == "same-origin") return false;
  return message["Sec-Fetch-Mode"] != "navigate" || message["Sec-Fetch-Dest"] != "document";
}

Task<Response> answered(std::shared_ptr<Services> services, Request request) {
  co_return services->routes.answer(request);
}

http::response<http::string_body> messageOf(const Response& response, unsigned version, bool keepAlive) {
  http::response<http::string_body> message;
  message.result(response.status);
  message.version(version);
  message.set(http::field::content_type, response.contentType);
  message.set(http::field::cache_control, "no-store");
  message.set("X-Content-Type-Options", "nosniff");
  for (const auto& [name, value] : response.headers) message.set(name, value);
  message.keep_alive(keepAlive);
  message.body() = response.body;
  message.prepare_payload();
  return message;
}

unsigned statusOf(const boost::system::error_code& error) {
  if (error == http::error::body_limit) return 413;
  if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
  return 400;
}

// True for an error that the client's bytes caused, and not the network.
bool isBadInput(const boost::system::error_code& error) {
  return error.category() == http::make_error_code(http::error::bad_method).category() &&
         error != http::error::end_of_stream && error != http::error::partial_message;
}

// The query is left out: codes of links stand there.
void traceAnswer(const Message& message, const Response& response,
                 std::chrono::steady_clock::time_point start) {
  if (!log::isOn(log::Category::service)) return;
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  const std::string target = text(message.target());
  log::trace(log::Category::service, text(message.method_string()), " ", target.substr(0, target.find('?')),
             " answered ", response.status, " after ", took.count(), " ms");
}

class Connection {
 public:
  Connection(ClientSocket socket, std::shared_ptr<Services> services)
      : services_(std::move(services)), stream_(std::move(socket)),
        entry_(std::make_shared<Connections::Entry>(services_->connections, [this] { stream_.close(); })) {}

  Task<void> serve() {
    for (bool more = true; more;) more = co_await serveOne();
    if (upgraded_) co_return;
    boost::system::error_code ignored;
    stream_.socket().shutdown(ClientSocket::shutdown_send, ignored);
  }

 private:
  Task<bool> serveOne() {
    http::request_parser<http::string_body> parser;
    parser.header_limit(headerLimit);
    parser.body_limit(bodyLimit);
    stream_.expires_after(waitLimit);
    boost::system::error_code error;
    auto withError = boost::asio::redirect_error(use_awaitable, error);
    co_await http::async_read(stream_, buffer_, parser, withError);
    if (error) {
      if (!isBadInput(error)) co_return false;
      const Response response = refuse(statusOf(error), TextLanguage::english, unreadable);
      co_await write(response, 11, false);
      co_return false;
    }
    const auto start = std::chrono::steady_clock::now();
    Message message = parser.release();
    if (isSubresourceOfOtherSite(message)) {
      log::trace(log::Category::service, "a page of another site gets no answer");
      co_return false;
    }
    if (isForeign(message, services_->hostNames)) {
      const Response response = refuse(421, languageOf(requestOf(message)), foreign);
      traceAnswer(message, response, start);
      co_await write(response, message.version(), false);
      co_return false;
    }
    if (beast::websocket::is_upgrade(message) && isStreamTarget(text(message.target()))) {
      stream_.expires_never();
      upgraded_ = true;
      auto run = StreamConnection::serve(std::move(stream_), std::move(message), services_, entry_);
      co_await std::move(run);
      co_return false;
    }
    auto answer = answered(services_, requestOf(message));
    Response response = co_await on(services_->blocking, std::move(answer));
    if (message.method() == http::verb::head) response.body.clear();
    traceAnswer(message, response, start);
    co_await write(response, message.version(), message.keep_alive());
    co_return message.keep_alive();
  }

  Task<void> write(const Response& response, unsigned version, bool keepAlive) {
    const auto message = messageOf(response, version, keepAlive);
    stream_.expires_after(waitLimit);
    co_await http::async_write(stream_, message, use_awaitable);
  }

  std::shared_ptr<Services> services_;
  ClientStream stream_;
  bool upgraded_ = false; // then the run has the stream
  beast::flat_buffer buffer_{headerLimit + bodyLimit};
  std::shared_ptr<Connections::Entry> entry_;
};

} // namespace

Task<void> serveConnection(ClientSocket socket, std::shared_ptr<Services> services) {
  Connection connection(std::move(socket), std::move(services));
  try {
    co_await connection.serve();
  } catch (const boost::system::system_error&) {
    // The peer is gone or too slow, so there is no one to answer.
  }
}

} // namespace tolvera::service
