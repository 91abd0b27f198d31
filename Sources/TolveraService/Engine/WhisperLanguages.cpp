#include "TolveraService/Engine/WhisperLanguages.h"

#include "TolveraService/Engine/BilingualLanguageNames.h"
#include "TolveraService/Engine/WhisperModel.h"

#include <whisper.h>

#include <array>
#include <cstdint>
#include <fstream>

namespace tolvera::service {

namespace {

constexpr std::int32_t tokensWithoutLanguages = 51766; // of a model for several languages

} // namespace

std::string whisperLanguage(std::string_view code) {
  if (code == "nb") return "no";
  if (code == "fil") return "tl";
  if (code == "jv") return "jw";
  return std::string(code);
}

std::string programLanguage(std::string_view whisper) {
  if (whisper == "no") return "nb";
  if (whisper == "tl") return "fil";
  if (whisper == "jw") return "jv";
  return std::string(whisper);
}

namespace {

// The program's languages below the `known`-th of Whisper's list.
std::vector<std::string> firstLanguages(int known) {
  quietenWhisper(); // it prints each language that it does not know
  std::vector<std::string> codes;
  for (std::string& code : programLanguages()) {
    const int number = whisper_lang_id(whisperLanguage(code).c_str());
    // A model for English alone has one token less than nothing here.
    if (number == 0 || (number > 0 && number < known)) codes.push_back(std::move(code));
  }
  return codes;
}

} // namespace

std::vector<std::string> whisperLanguages() { return firstLanguages(whisper_lang_max_id() + 1); }

std::string whisperLanguageNamed(std::string name) {
  for (char& letter : name)
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  quietenWhisper();
  const int number = whisper_lang_id(name.c_str());
  return number < 0 ? std::string() : whisper_lang_str(number);
}

std::vector<std::string> whisperLanguages(const std::filesystem::path& model) {
  std::array<std::int32_t, 2> head{}; // the format's mark, the number of tokens
  std::ifstream file(model, std::ios::binary);
  if (!file.read(reinterpret_cast<char*>(head.data()), sizeof head)) return {};
  return firstLanguages(head[1] - tokensWithoutLanguages);
}

} // namespace tolvera::service
