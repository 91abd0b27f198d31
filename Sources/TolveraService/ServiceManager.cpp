#include "TolveraService/ServiceManager.h"

#include <systemd/sd-daemon.h>

#include <numeric>

namespace tolvera::service::manager {

std::vector<int> listeningSockets() {
  const int count = ::sd_listen_fds(1);
  std::vector<int> sockets(count > 0 ? static_cast<std::size_t>(count) : 0);
  std::iota(sockets.begin(), sockets.end(), SD_LISTEN_FDS_START);
  return sockets;
}

void tellReady() { ::sd_notify(0, "READY=1"); }

void tellStatus(const std::string& line) { ::sd_notify(0, ("STATUS=" + line).c_str()); }

void tellStopping() { ::sd_notify(0, "STOPPING=1"); }

} // namespace tolvera::service::manager
