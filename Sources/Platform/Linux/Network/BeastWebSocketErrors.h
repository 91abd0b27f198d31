#pragma once

#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/PlatformError.h"

#include <boost/beast/websocket/rfc6455.hpp>
#include <boost/system/error_code.hpp>

#include <string>

// Why a web socket did not open, or ended, in words. `where` is a host and a port.
namespace tolvera::adapters {

platform::PlatformError upgradeFailure(const std::string& where, boost::system::error_code error,
                                       const boost::beast::websocket::response_type& response);

// What the peer sent when the connection ended.
struct LastWords {
  boost::beast::websocket::close_reason reason;
  bool isText = false; // the message that was being read
};
platform::PlatformError readFailure(const std::string& where, boost::system::error_code error,
                                    const LastWords& last, const BeastOptions& options);

// A message is over its limit.
platform::PlatformError tooLarge(const std::string& where, bool isText, const BeastOptions& options);

} // namespace tolvera::adapters
