#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The programs that one translation mode runs in a row: for each, its absolute path and its arguments.
using ApertiumStages = std::vector<std::vector<std::string>>;

// Reads the text of a mode file into stages that stay up and answer at every NUL, with every
// mark for unknown words. Programs are looked for along PATH. Throws std::runtime_error for a text
// that is not a plain pipeline or a program that is not there.
ApertiumStages parseApertiumMode(std::string_view text);

// The stages of a mode by name, for instance "eng-spa"; throws std::runtime_error if it is not there.
ApertiumStages loadApertiumMode(const std::filesystem::path& directory, std::string_view name);

} // namespace tolvera::service
