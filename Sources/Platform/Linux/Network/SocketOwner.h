#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <vector>

namespace tolvera::adapters {

// The users who listen at a TCP port of this machine, by the kernel's own table; empty if none does. Any
// thread.
std::vector<uid_t> usersListeningAt(std::uint16_t port);

// True if a program listens at a Unix socket; the file alone may have been left behind. Any thread.
bool isListenedAt(const std::filesystem::path& socket);

} // namespace tolvera::adapters
