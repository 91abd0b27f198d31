#pragma once

#include "TolveraService/ClientSocket.h"
#include "TolveraService/Services.h"

namespace tolvera::service {

// Serves one connection of a client until it closes or idles: REST requests one after another, or the
// upgrade to a run's web socket. Network thread. Bounds header (8 KiB), body (16 KiB) and waiting (15 s).
Task<void> serveConnection(ClientSocket socket, std::shared_ptr<Services> services);

} // namespace tolvera::service
