#include "TolveraService/Engine/ApertiumMode.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace tolvera::service {

namespace {

std::string findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos)
    throw std::runtime_error("a mode names a program by path: " + name);
  const char* path = std::getenv("PATH");
  std::istringstream directories(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string directory; std::getline(directories, directory, ':');) {
    if (directory.empty()) continue;
    std::string candidate = std::move(directory);
    candidate += "/";
    candidate += name;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  throw std::runtime_error("no program called " + name);
}

struct Token {
  std::string text;
  bool isPipe = false;
};

// Words, single-quoted words and bars: all that a mode file holds.
std::vector<Token> tokens(std::string_view text) {
  std::vector<Token> result;
  std::size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      ++i;
    } else if (c == '|') {
      result.push_back({"", true});
      ++i;
    } else if (c == '\'') {
      const std::size_t end = text.find('\'', i + 1);
      if (end == std::string_view::npos) throw std::runtime_error("a mode file with an open quote");
      result.push_back({std::string(text.substr(i + 1, end - i - 1)), false});
      i = end + 1;
    } else {
      const std::size_t end = std::min(text.find_first_of(" \t\r\n|'", i), text.size());
      result.push_back({std::string(text.substr(i, end - i)), false});
      i = end;
    }
  }
  return result;
}

// apertium-transfer 3.9 cuts the last tag off each word when it reads the bilingual dictionary itself. So
// lt-proc looks the words up before it, as the modes of newer language pairs have it.
void separateDictionary(ApertiumStages& stages) {
  for (auto stage = stages.begin(); stage != stages.end(); ++stage) {
    const bool readsDictionary = stage->front().ends_with("/apertium-transfer") && stage->size() == 5 &&
                                 !stage->at(2).starts_with('-');
    if (!readsDictionary) continue;
    std::vector<std::string> lookUp = {findProgram("lt-proc"), "-z", "-b", std::move(stage->back())};
    stage->pop_back();
    stage->insert(stage->begin() + 1, "-b");
    stage = std::next(stages.insert(stage, std::move(lookUp)));
  }
}

} // namespace

ApertiumStages parseApertiumMode(std::string_view text) {
  ApertiumStages stages(1);
  for (const Token& token : tokens(text)) {
    if (token.isPipe) {
      stages.emplace_back();
    } else if (stages.back().empty()) {
      stages.back().push_back(findProgram(token.text));
      stages.back().emplace_back("-z");
    } else if (token.text == "$1") {
      stages.back().emplace_back("-g");
    } else if (token.text != "$2") {
      stages.back().push_back(token.text);
    }
  }
  for (const auto& stage : stages)
    if (stage.empty()) throw std::runtime_error("a mode file with an empty stage");
  separateDictionary(stages);
  return stages;
}

ApertiumStages loadApertiumMode(const std::filesystem::path& directory, std::string_view name) {
  std::ifstream file(directory / (std::string(name) + ".mode"));
  if (!file) throw std::runtime_error("no translation mode " + std::string(name));
  std::ostringstream text;
  text << file.rdbuf();
  return parseApertiumMode(text.str());
}

} // namespace tolvera::service
