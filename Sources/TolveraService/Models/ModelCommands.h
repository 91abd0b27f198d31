#pragma once

#include <string_view>
#include <vector>

namespace tolvera::service {

// `tolvera-service models …`: lists, installs, checks and removes models. `arguments` without "models".
// Writes to standard output and standard error; gives the exit status: 0, 1 if it failed, 2 for a command
// line that is wrong, 130 if it was interrupted. Called once, before any other thread; takes SIGINT and
// SIGTERM for itself.
int runModelCommand(const std::vector<std::string_view>& arguments);

} // namespace tolvera::service
