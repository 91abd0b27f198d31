#pragma once

#include "Platform/Linux/Network/BeastConnect.h"

namespace tolvera::adapters {

// One HTTP exchange over a connection of its own, on the serial executor of the calling coroutine.
Task<platform::HTTPResponse> exchange(platform::HTTPRequest request,
                                      std::shared_ptr<BeastEnvironment> environment);

} // namespace tolvera::adapters
