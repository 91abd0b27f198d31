#pragma once

#include <string>
#include <vector>

// The service manager that started this process, by systemd's protocol. Without one every function does
// nothing. Any thread.
namespace tolvera::service::manager {

// The listening sockets that were handed over. They belong to the caller; called once.
std::vector<int> listeningSockets();
// Says that requests are answered from now on.
void tellReady();
// Gives the line that people see when they ask for the state of the service.
void tellStatus(const std::string& line);
void tellStopping();

} // namespace tolvera::service::manager
