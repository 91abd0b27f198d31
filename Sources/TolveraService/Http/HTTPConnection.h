#pragma once

#include "TolveraService/Services.h"

#include <boost/asio/ip/tcp.hpp>

namespace tolvera::service {

// Serves one connection of a client until it closes or idles: REST requests one after another, or the
// upgrade to a run's web socket. Network thread. Bounds header (8 KiB), body (16 KiB) and waiting (15 s).
Task<void> serveConnection(boost::asio::ip::tcp::socket socket, std::shared_ptr<Services> services);

} // namespace tolvera::service
