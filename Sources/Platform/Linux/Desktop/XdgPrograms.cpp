#include "Platform/Linux/Desktop/XdgPrograms.h"

#include "Platform/Linux/Desktop/GlibOwner.h"

#include <glib.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace tolvera::adapters {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> words(const std::string& execLine) {
  gint count = 0;
  gchar** parsed = nullptr;
  if (!g_shell_parse_argv(execLine.c_str(), &count, &parsed, nullptr)) return {};
  const GlibTexts owner(parsed);
  return {parsed, parsed + count};
}

// The word with "%%" read as "%". Absent if it holds a field code, which stands for the user's files.
std::optional<std::string> fixedWord(const std::string& word) {
  std::string result;
  for (std::size_t index = 0; index < word.size(); ++index) {
    if (word[index] == '%') {
      ++index;
      if (index == word.size() || word[index] != '%') return std::nullopt;
    }
    result += word[index];
  }
  return result;
}

bool isEnv(std::string_view name) { return name.substr(name.rfind('/') + 1) == "env"; }

// Options of `env` with a separate value are not supported; desktop entries do not use them.
bool belongsToEnv(std::string_view word) {
  return word.starts_with("-") || word.find('=') != std::string_view::npos;
}

} // namespace

std::optional<XdgPrograms::Command> XdgPrograms::command(const std::string& execLine) {
  const auto all = words(execLine);
  auto word = all.begin();
  if (word != all.end() && isEnv(*word)) {
    ++word;
    while (word != all.end() && belongsToEnv(*word)) ++word;
  }
  if (word == all.end() || word->empty()) return std::nullopt;
  Command command{.name = *word++, .arguments = {}};
  for (; word != all.end(); ++word)
    if (auto fixed = fixedWord(*word)) command.arguments.push_back(*std::move(fixed));
  return command;
}

std::optional<std::string> XdgPrograms::resolved(const std::string& name) {
  const GlibText found(g_find_program_in_path(name.c_str()));
  if (!found) return std::nullopt;
  std::error_code error;
  const auto file = fs::canonical(found.get(), error);
  return error ? std::nullopt : std::optional(file.string());
}

std::optional<std::string> XdgPrograms::interpreter(const std::string& file) {
  std::error_code error;
  if (!fs::is_regular_file(file, error)) return std::nullopt;
  std::array<char, 256> start{};
  std::ifstream stream(file, std::ios::binary);
  stream.read(start.data(), start.size());
  std::string_view line(start.data(), static_cast<std::size_t>(stream.gcount()));
  if (!line.starts_with("#!")) return std::nullopt;
  line = line.substr(2, line.find('\n') - 2);

  std::istringstream rest{std::string(line)};
  std::string word;
  rest >> word;
  if (isEnv(word))
    while (rest >> word && belongsToEnv(word)) {
    }
  return resolved(word).value_or("");
}

} // namespace tolvera::adapters
