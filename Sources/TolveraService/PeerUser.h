#pragma once

#include "TolveraService/ClientSocket.h"

#include <sys/types.h>

#include <optional>

namespace tolvera::service {

// The user whose program is at the other end of a connection within this machine, by the kernel's own table.
// Absent if that program has closed it already. Any thread.
std::optional<uid_t> userAtOtherEnd(ClientSocket& socket);

} // namespace tolvera::service
