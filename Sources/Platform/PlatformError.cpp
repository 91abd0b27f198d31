#include "Platform/PlatformError.h"

#include <utility>

namespace tolvera::platform {

PlatformError::PlatformError(std::string domain, int code, const std::string& localizedDescription)
    : std::runtime_error(localizedDescription), domain_(std::move(domain)), code_(code) {}

} // namespace tolvera::platform
