#include "Platform/Linux/Network/BeastErrors.h"

#include <boost/asio/error.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/error.hpp>

#include <cmath>
#include <sstream>

namespace tolvera::adapters {

namespace {

std::string inSeconds(Duration duration) {
  std::ostringstream text;
  text << std::round(std::chrono::duration<double>(duration).count() * 10) / 10 << " s";
  return text.str();
}

} // namespace

platform::PlatformError transportError(TransportError code, const std::string& text) {
  return {platform::transportErrorDomain, static_cast<int>(code), text};
}

platform::PlatformError connectionLost(const std::string& where, boost::system::error_code error) {
  namespace failure = boost::asio::error;
  if (error == failure::eof || error == boost::asio::ssl::error::stream_truncated ||
      error == boost::beast::http::error::end_of_stream ||
      error == boost::beast::http::error::partial_message) {
    return transportError(TransportError::connectionLost, where + " ended the connection");
  }
  if (error == failure::connection_reset || error == failure::broken_pipe) {
    return transportError(TransportError::connectionLost, "The connection to " + where + " was reset");
  }
  if (error == failure::timed_out) {
    return transportError(TransportError::connectionLost, where + " has stopped answering");
  }
  return transportError(TransportError::connectionLost,
                        "The connection to " + where + " failed: " + error.message());
}

platform::PlatformError noAnswer(const std::string& where, Duration timeout) {
  return transportError(TransportError::timedOut,
                        "No answer from " + where + " within " + inSeconds(timeout));
}

} // namespace tolvera::adapters
