#pragma once

#include <string>
#include <vector>

namespace tolvera::service {

// The service manager that started this process, by systemd's protocol. Without one every function does
// nothing. Any thread.
namespace manager {

// The listening sockets that were handed over. They belong to the caller; called once.
std::vector<int> listeningSockets();
// Requests are answered from now on.
void tellReady();
// A line for people who ask for the state of the service.
void tellStatus(const std::string& line);
void tellStopping();

} // namespace manager

} // namespace tolvera::service
