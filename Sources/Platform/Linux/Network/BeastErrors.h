#pragma once

#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/PlatformError.h"

#include <boost/system/error_code.hpp>

#include <string>

// Failures of the network in words for the user. `where` is a host and a port, never an address with its
// query, which may hold a token.
namespace tolvera::adapters {

platform::PlatformError transportError(TransportError code, const std::string& text);

// An open connection failed with `error`.
platform::PlatformError connectionLost(const std::string& where, boost::system::error_code error);
// No answer came from `where` in time.
platform::PlatformError noAnswer(const std::string& where, Duration timeout);

} // namespace tolvera::adapters
