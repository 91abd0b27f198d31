#pragma once

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace tolvera::bench {

// Seconds of processor time that a process has used.
inline double processorTime(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  std::istringstream fields(line.substr(line.rfind(')') + 2));
  std::string skipped;
  for (int i = 0; i < 11; ++i) fields >> skipped;
  double user = 0;
  double system = 0;
  fields >> user >> system;
  return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// A "Vm..." line of a process, in MB.
inline double memory(pid_t pid, const std::string& key) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(key + ":")) return std::strtod(line.c_str() + key.size() + 1, nullptr) / 1024;
  }
  return 0;
}

} // namespace tolvera::bench
