#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tolvera::adapters {

// The files behind the command lines of desktop entries. Any thread.
namespace XdgPrograms {

struct Command {
  std::string name;                   // as written: a plain name or an absolute path
  std::vector<std::string> arguments; // those that every start has: no files or addresses to open
};

// Reads the Exec line of a desktop entry and looks through a leading `env NAME=VALUE`; absent if it is
// broken.
[[nodiscard]] std::optional<Command> command(const std::string& execLine);
// The file that starting `name` runs, by way of PATH and with links resolved.
[[nodiscard]] std::optional<std::string> resolved(const std::string& name);
// The resolved interpreter that a script's first line names; empty if it is not there, absent if the file is
// no script.
[[nodiscard]] std::optional<std::string> interpreter(const std::string& file);

} // namespace XdgPrograms

} // namespace tolvera::adapters
