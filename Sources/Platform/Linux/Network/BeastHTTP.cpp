#include "Platform/Linux/Network/BeastHTTP.h"

#include "Async/Log.h"
#include "Platform/Linux/Network/BeastErrors.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <algorithm>

namespace tolvera::adapters {

namespace {

namespace http = boost::beast::http;
using ErrorCode = boost::system::error_code;
using Request = http::request<http::string_body>;
using Parser = http::response_parser<http::string_body>;

bool isToken(std::string_view text) {
  constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::ranges::all_of(text, [marks](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           marks.find(c) != std::string_view::npos;
  });
}

bool isFieldValue(std::string_view text) {
  return std::ranges::none_of(text, [](char c) { return (c >= 0 && c < ' ' && c != '\t') || c == '\x7f'; });
}

// Refuses a line feed in a header, since it would let the value add other headers.
Request compose(const platform::HTTPRequest& from, const Endpoint& endpoint, const std::string& userAgent) {
  if (!isToken(from.method))
    throw transportError(TransportError::badRequest, "The request has no valid method");
  Request request;
  request.version(11);
  request.method_string(from.method);
  request.target(requestTarget(from.url));
  request.set(http::field::host, endpoint.hostHeader());
  request.set(http::field::user_agent, userAgent);
  request.set(http::field::accept, "*/*");
  request.set(http::field::connection, "close");
  for (const auto& [name, value] : from.headers) {
    if (!isToken(name) || !isFieldValue(value)) {
      throw transportError(TransportError::badRequest, "A header of the request cannot be sent");
    }
    request.set(name, value);
  }
  request.body() = from.body;
  if (!from.body.empty() || from.method == "POST" || from.method == "PUT" || from.method == "PATCH") {
    request.content_length(from.body.size());
  }
  return request;
}

platform::PlatformError readFailure(const Endpoint& endpoint, ErrorCode error, std::size_t limit) {
  if (error == http::error::body_limit || error == http::error::header_limit ||
      error == http::error::buffer_overflow) {
    return transportError(TransportError::tooLarge, "The reply of " + endpoint.where() + " is over " +
                                                        std::to_string(limit >> 10U) + " KiB");
  }
  const bool cutShort = error == http::error::end_of_stream || error == http::error::partial_message;
  if (!cutShort && error.category() == make_error_code(http::error::bad_version).category()) {
    return transportError(TransportError::notHTTP, endpoint.where() + " did not answer in HTTP");
  }
  return connectionLost(endpoint.where(), error);
}

// A reply on its way. All that is read counts towards the limit: headers, extensions of chunks and trailers
// too, which the parser itself takes without end.
class ReplyReader {
 public:
  ReplyReader(AnyStream& stream, std::size_t limit) : stream_(stream), limit_(limit), buffer_(limit + 1) {}

  // Reads up to the final reply, past informational ones such as 100.
  Task<ErrorCode> read(std::optional<Parser>& parser, bool bodiless) {
    do {
      parser.emplace();
      parser->eager(true);
      parser->body_limit(limit_);
      parser->header_limit(static_cast<std::uint32_t>(limit_));
      parser->skip(bodiless);
      while (!parser->is_done()) {
        ErrorCode error = parse(*parser);
        if (!error && !parser->is_done()) error = co_await readMore(*parser);
        if (error) co_return error;
      }
    } while (http::to_status_class(parser->get().result()) == http::status_class::informational);
    co_return ErrorCode();
  }

 private:
  ErrorCode parse(Parser& parser) {
    ErrorCode error;
    while (buffer_.size() > 0 && !error && !parser.is_done())
      buffer_.consume(parser.put(buffer_.cdata(), error));
    return error == http::error::need_more ? ErrorCode() : error;
  }

  Task<ErrorCode> readMore(Parser& parser) {
    constexpr std::size_t block = 16384;
    ErrorCode error;
    auto token = boost::asio::redirect_error(boost::asio::use_awaitable, error);
    const auto room = buffer_.prepare(std::min(block, limit_ + 1 - read_));
    const std::size_t count = co_await stream_.async_read_some(room, token);
    buffer_.commit(count);
    read_ += count;
    if (error == boost::asio::error::eof && parser.got_some()) {
      error = {};
      parser.put_eof(error);
    }
    if (!error && read_ > limit_) error = http::error::body_limit;
    co_return error;
  }

  AnyStream& stream_;
  const std::size_t limit_;
  std::size_t read_ = 0;
  boost::beast::flat_buffer buffer_;
};

Task<platform::HTTPResponse> exchangeUntraced(platform::HTTPRequest request,
                                              std::shared_ptr<BeastEnvironment> environment) {
  const auto& options = environment->options;
  const auto end = std::chrono::steady_clock::now() + request.timeout;
  const auto endpoint = Endpoint::of(request.url);
  auto message = compose(request, endpoint, options.userAgent);
  try {
    auto stream = co_await openStream(endpoint, environment, request.timeout);
    const Deadline deadline(stream.get_executor(), end - std::chrono::steady_clock::now(),
                            [&stream] { stream.close(); });
    ErrorCode error;
    auto token = boost::asio::redirect_error(boost::asio::use_awaitable, error);
    co_await http::async_write(stream, message, token);
    // A server may refuse a body half way and say so. Its answer then tells more than the failed write.
    const auto unsent = error;
    std::optional<Parser> parser;
    ReplyReader reader(stream, options.maxReplyBytes);
    error = co_await reader.read(parser, request.method == "HEAD");
    if (deadline.expired()) throw noAnswer(endpoint.where(), request.timeout);
    if (error && unsent) throw connectionLost(endpoint.where(), unsent);
    if (error == boost::asio::error::operation_aborted) throw boost::system::system_error(error);
    if (error) throw readFailure(endpoint, error, options.maxReplyBytes);
    auto reply = parser->release();
    platform::HTTPResponse response;
    response.status = static_cast<int>(reply.result_int());
    response.body = std::move(reply.body());
    co_return response;
  } catch (const boost::system::system_error& failure) {
    if (failure.code() != boost::asio::error::operation_aborted)
      throw connectionLost(endpoint.where(), failure.code());
    throw transportError(TransportError::cancelled, "The request was cancelled");
  }
}

} // namespace

Task<platform::HTTPResponse> exchange(platform::HTTPRequest request,
                                      std::shared_ptr<BeastEnvironment> environment) {
  // Without the query, which may hold private words.
  const std::string what = request.method + " " + std::string(request.url.encoded_path());
  const Stopwatch stopwatch;
  try {
    auto response = co_await exchangeUntraced(std::move(request), std::move(environment));
    log::trace(log::Category::network, what, " ", *response.status, " in ", stopwatch.milliseconds(), " ms");
    co_return response;
  } catch (const platform::PlatformError& failure) {
    log::warn(log::Category::network, what, " failed after ", stopwatch.milliseconds(),
              " ms: ", std::string_view(failure.what()));
    throw;
  }
}

} // namespace tolvera::adapters
