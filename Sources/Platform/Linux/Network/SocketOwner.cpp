#include "Platform/Linux/Network/SocketOwner.h"

#include <fstream>
#include <sstream>
#include <string>

namespace tolvera::adapters {

std::vector<uid_t> usersListeningAt(std::uint16_t port) {
  constexpr const char* listening = "0A";
  std::vector<uid_t> users;
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream file(table);
    std::string line;
    std::getline(file, line); // the headings
    while (std::getline(file, line)) {
      std::istringstream fields(line);
      std::string number, local, remote, state, queues, timer, retries;
      uid_t user = 0;
      if (!(fields >> number >> local >> remote >> state >> queues >> timer >> retries >> user)) continue;
      const auto colon = local.rfind(':');
      if (state == listening && colon != std::string::npos &&
          std::stoul(local.substr(colon + 1), nullptr, 16) == port)
        users.push_back(user);
    }
  }
  return users;
}

bool isListenedAt(const std::filesystem::path& socket) {
  constexpr unsigned long acceptsConnections = 1UL << 16U;
  std::ifstream file("/proc/net/unix");
  std::string line;
  std::getline(file, line); // the headings
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string number, references, protocol, flags, type, state, inode, path;
    fields >> number >> references >> protocol >> flags >> type >> state >> inode >> path;
    if (path == socket && (std::stoul(flags, nullptr, 16) & acceptsConnections) != 0) return true;
  }
  return false;
}

} // namespace tolvera::adapters
