#include "Platform/Linux/Network/BeastWebSocketErrors.h"

#include "Platform/Linux/Network/BeastErrors.h"

#include <boost/beast/core/error.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/websocket/error.hpp>

namespace tolvera::adapters {

namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using ErrorCode = boost::system::error_code;

platform::PlatformError upgradeFailure(const std::string& where, ErrorCode error,
                                       const websocket::response_type& response) {
  if (error == websocket::error::upgrade_declined) {
    return transportError(TransportError::upgradeRefused, "The server answered " +
                                                              std::to_string(response.result_int()) +
                                                              " to the web socket request");
  }
  const bool cutShort =
      error == beast::http::error::end_of_stream || error == beast::http::error::partial_message;
  const bool isHTTP = error.category() == make_error_code(beast::http::error::bad_version).category();
  const bool isUpgrade = error.category() == make_error_code(websocket::error::closed).category();
  if ((isHTTP && !cutShort) || isUpgrade || error == beast::error::timeout) {
    return transportError(TransportError::notHTTP, where + " gave no valid answer to the web socket request");
  }
  return connectionLost(where, error);
}

platform::PlatformError tooLarge(const std::string& where, bool isText, const BeastOptions& options) {
  const std::string sent =
      isText ? " sent a text of more than " + std::to_string(options.maxTextBytes >> 10U)
             : " sent a message of more than " + std::to_string(options.maxBinaryBytes >> 10U);
  return transportError(TransportError::tooLarge, where + sent + " KiB");
}

platform::PlatformError readFailure(const std::string& where, ErrorCode error, const LastWords& last,
                                    const BeastOptions& options) {
  // After a goodbye the connection may end with any error. (A control callback would tell a goodbye for
  // sure, but with one, a close from both sides can block Beast's two operations for ever.)
  const auto code = last.reason.code;
  if (error == websocket::error::closed || code != websocket::close_code::none) {
    const auto told =
        code == websocket::close_code::none ? std::string("without a code") : std::to_string(code);
    return transportError(TransportError::closedByPeer, "The server closed the connection (" + told + ")");
  }
  if (error == websocket::error::message_too_big || error == websocket::error::buffer_overflow)
    return tooLarge(where, last.isText, options);
  if (error.category() == make_error_code(websocket::error::closed).category())
    return transportError(TransportError::notHTTP, where + " broke the web socket protocol");
  return connectionLost(where, error);
}

} // namespace tolvera::adapters
