#pragma once

#include <filesystem>
#include <vector>

namespace tolvera::adapters {

// The user's base directories: those that the desktop's environment variables name, or else the defaults. A
// variable that is empty or holds a relative path counts as unset. A directory may be missing. Any thread.
namespace XdgDirectories {

[[nodiscard]] std::filesystem::path dataHome();   // $XDG_DATA_HOME or ~/.local/share
[[nodiscard]] std::filesystem::path configHome(); // $XDG_CONFIG_HOME or ~/.config
// $XDG_DATA_DIRS or the system's own, the most important first; without the user's own.
[[nodiscard]] std::vector<std::filesystem::path> dataDirectories();

} // namespace XdgDirectories

} // namespace tolvera::adapters
