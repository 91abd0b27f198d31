#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// Whisper's name of one of the program's languages. Three of them have another one there.
std::string whisperLanguage(std::string_view code);
// The program's code of a language that Whisper names.
std::string programLanguage(std::string_view whisper);

// Those of the program's languages that a model knows, by the size of its vocabulary in the file's head:
// models for English alone and models without Cantonese differ in it. Empty if the file cannot be read.
std::vector<std::string> whisperLanguages(const std::filesystem::path& model);
// Those that the newest models know.
std::vector<std::string> whisperLanguages();
// Whisper's code of a language by its English name, or by the code itself; empty if it is unknown.
std::string whisperLanguageNamed(std::string name);

} // namespace tolvera::service
