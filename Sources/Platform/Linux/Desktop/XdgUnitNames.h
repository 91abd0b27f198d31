#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolvera::adapters {

// The application identifiers that a session's units may stand for. Any thread.
namespace XdgUnitNames {

// What the units on the path of a control group may mean, best guess first: the innermost unit comes first,
// and a name that can be read in several ways ("app-LAUNCHER-ID-RANDOM", "app-ID-RANDOM") gives them all.
[[nodiscard]] std::vector<std::string> applicationIDs(std::string_view controlGroup);

} // namespace XdgUnitNames

} // namespace tolvera::adapters
