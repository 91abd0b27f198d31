#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolvera::adapters {

// Reads application identifiers from the names of a session's units. Any thread.
namespace XdgUnitNames {

// The identifiers that the units on a control group's path may contain, the innermost unit first. A name that
// can be read in several ways ("app-LAUNCHER-ID-RANDOM", "app-ID-RANDOM") gives all of them.
[[nodiscard]] std::vector<std::string> applicationIDs(std::string_view controlGroup);

} // namespace XdgUnitNames

} // namespace tolvera::adapters
