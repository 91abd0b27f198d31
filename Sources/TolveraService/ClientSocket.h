#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/beast/core/basic_stream.hpp>

namespace tolvera::service {

// A client's connection: by a port of the loopback interface, or by the socket that the service manager
// keeps.
using ClientSocket = boost::asio::generic::stream_protocol::socket;
using ClientStream = boost::beast::basic_stream<boost::asio::generic::stream_protocol>;

} // namespace tolvera::service
