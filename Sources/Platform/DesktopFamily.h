#pragma once

namespace tolvera::platform {

// Which desktop the program's texts speak of.
enum class DesktopFamily { macOS, freedesktop };

} // namespace tolvera::platform
