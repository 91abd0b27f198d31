#pragma once

#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/PlatformError.h"

#include <boost/system/error_code.hpp>

#include <string>

// Failures of the network in words for a person. `where` is a host and port: never an address with its
// query, which holds a token.
namespace tolvera::adapters {

platform::PlatformError transportError(TransportError code, const std::string& text);

// A connection that was there and is not any more.
platform::PlatformError connectionLost(const std::string& where, boost::system::error_code error);
// Nothing came from `where` in time.
platform::PlatformError noAnswer(const std::string& where, Duration timeout);

} // namespace tolvera::adapters
