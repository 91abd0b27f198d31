#pragma once

#include "TolveraService/Models/ModelCatalogue.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::service {

// Where data is looked for: $XDG_DATA_HOME, then $XDG_DATA_DIRS, by their defaults where they are not set.
std::vector<std::filesystem::path> dataDirectories();

// The SHA-256 of a file, in hexadecimal; throws std::filesystem::filesystem_error if it cannot be read.
std::string sha256OfFile(const std::filesystem::path& path);

// The models on this machine. They are written into the user's own directory and read from the system's too.
// The functions touch the disk; any thread.
namespace ModelStore {

// $XDG_DATA_HOME/tolvera/models. Throws std::runtime_error without a home directory.
std::filesystem::path ownDirectory();

// The model's file, unchecked; absent if it is not installed.
std::optional<std::filesystem::path> find(const Model& model);

// True if it is installed and as published.
bool isInstalled(const Model& model);

// What is wrong with an installed file, as a sentence that names the cure; absent if it is as published. A
// file whose size and time are those of its last check is not read again.
std::optional<std::string> fault(const Model& model, const std::filesystem::path& path);

// Notes that a file has been checked, so that `fault` need not read it. Failure to write is harmless.
void noteChecked(const Model& model, const std::filesystem::path& path);

// Removes the model and what belongs to it from the user's directory; false if it was not there.
bool remove(const Model& model);

} // namespace ModelStore

} // namespace tolvera::service
